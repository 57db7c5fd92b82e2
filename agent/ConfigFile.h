// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
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

// A configuration file: settings in TOML as CLI11 reads it, each once, without sections. An array may span
// lines. The names and values are nobody's business here.
class ConfigFile {
 public:
  // Longer ones are refused, so that a reading takes a few milliseconds at most, whatever stands at the path.
  static constexpr std::size_t maxBytes = 32 * 1024;

  struct Setting {
    std::string name;
    std::vector<std::string> values;  // without quotes; of an array so many as it has
    unsigned line;                    // where it begins
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
  void add(std::string const& statement, unsigned line);
  ConfigError fault(unsigned line, std::string const& what) const;

  std::string path_;
  std::vector<Setting> settings_;
};

// A value as a configuration file holds it.
std::string configText(std::string const& value);

}  // namespace Agent
