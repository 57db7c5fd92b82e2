// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Kes/Types.h"
#include "Vorn/Export.h"

namespace Vorn {

// What a show-command asks for. A command is cut into tokens at every single blank; each token is tested
// against these texts in this order, anywhere inside it, and the first that occurs decides. Other tokens are
// ignored.
//
//   -c     statistics; tokens after it are not looked at
//   -i     interface filter: the token from its third character, cut at commas, adds patterns;
//          "Fabric" stands for "Fc.*". "-i" alone selects no interface
//   -t     age limit: seconds, strtol from the third character, cut to 32 bits; 0 is no limit
//   -s     line count, likewise
//   -d     drops lines
//   csv    comma-separated report: -t, -s, -d and -l then have no effect
//   -l     latency lines; -d goes first
//   -b     global buffer; tokens after it are not looked at
//   -a     merges the global buffer's records in
//
// Values are glued to their option ("-t30"). So "-icsv" is an interface list, and "-csv" asks for statistics.
struct CommandOptions {
  enum class Report { text, csv, statistics, globalBuffer };

  Report report = Report::text;
  // Whether there is no interface filter; the patterns otherwise, regular expressions that must match a whole
  // short name.
  bool allInterfaces = true;
  std::vector<std::string> interfacePatterns;
  Kes::U32 ageLimit = 0;
  Kes::U32 entryCount = 0;
  bool drops = false;
  bool latency = false;
  bool showAll = false;
};

// Never fails: what is not understood is left out. A host may use it to choose a header by the report that
// the command will get.
VORN_EXPORT CommandOptions parseCommand(std::string const& command);

// Appends the pieces of `text` between delimiters to `pieces`, empty ones included, but for one behind a
// delimiter that ends the text. An empty delimiter cuts nothing.
VORN_EXPORT void split(std::string const& text, std::string const& delimiter,
                       std::vector<std::string>& pieces);

}  // namespace Vorn
