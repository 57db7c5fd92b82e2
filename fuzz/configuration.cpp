// SPDX-License-Identifier: Apache-2.0
// Configuration files. Input: the file.

#include "agent/ConfigFile.h"
#include "fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  using Agent::ConfigFile;
  try {
    ConfigFile const file("FILE", Fuzz::Input(data, size).rest());
    std::string again;
    for (ConfigFile::Setting const& setting : file.settings()) {
      Fuzz::check(file.find(setting.name) == &setting, "found", setting.name);
      Fuzz::check(setting.isArray || setting.values.size() == 1, "one value", setting.name);
      again += setting.name + (setting.isArray ? " = [" : " = ");
      for (std::string const& value : setting.values)
        again += Agent::configText(value) + (setting.isArray ? "," : "");
      again += setting.isArray ? "]\n" : "\n";
    }
    ConfigFile const read("FILE", again);
    Fuzz::check(read.settings().size() == file.settings().size(), "as many", again);
    for (ConfigFile::Setting const& setting : read.settings())
      Fuzz::check(setting.values == file.find(setting.name)->values, "the same", again);
  } catch (Agent::ConfigError const& error) {
    Fuzz::check(std::string(error.what()).starts_with("FILE:"), "place", error.what());
  }
  return 0;
}
