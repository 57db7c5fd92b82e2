// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Agent {

// A configuration that cannot be used; the text names file and line where one is to blame.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A configuration file: settings in TOML, each once, without sections: strings on one line, numbers, true,
// false, and arrays of them, which may span lines. The names and values are nobody's business here.
class ConfigFile {
 public:
  // Longer files and lists are refused: an agent reads between two looks at the queues.
  static constexpr std::size_t maxBytes = 32 * 1024;
  static constexpr std::size_t maxValues = 1000;

  struct Setting {
    std::string name;
    std::vector<std::string> values;  // without quotes; of an array so many as it has
    bool isArray;
    unsigned line;  // where it begins
  };

  // No file: no settings.
  ConfigFile() = default;
  // `path` is what errors call it. Throws ConfigError.
  ConfigFile(std::string path, std::string const& text);
  // Nothing where there is no file. Does not wait for a writer. Throws ConfigError.
  static std::optional<ConfigFile> read(std::string const& path);

  std::string const& path() const { return path_; }
  std::vector<Setting> const& settings() const { return settings_; }
  // Null when the file does not hold it.
  Setting const* find(std::string const& name) const;

  // "PATH:LINE".
  std::string place(unsigned line) const;

 private:
  class Reader;

  ConfigError fault(unsigned line, std::string const& what) const;

  std::string path_;
  std::vector<Setting> settings_;
  std::map<std::string, std::size_t> places_;  // in settings_, by name
};

// A value as a configuration file holds it.
std::string configText(std::string const& value);

}  // namespace Agent
