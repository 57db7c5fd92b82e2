// SPDX-License-Identifier: Apache-2.0
// Runs a harness over the files of its corpus, where there is no fuzzer to do it.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Harness.h"

int main(int count, char** arguments) {
  Fuzz::check(count == 2, "usage", "PROGRAM DIRECTORY");
  int inputs = 0;
  for (auto const& file : std::filesystem::directory_iterator(arguments[1])) {
    std::ifstream in(file.path(), std::ios::binary);
    std::vector<char> const bytes(std::istreambuf_iterator<char>(in), {});
    std::fprintf(stderr, "%s\n", file.path().c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
    ++inputs;
  }
  Fuzz::check(inputs != 0, "no inputs", arguments[1]);
}
