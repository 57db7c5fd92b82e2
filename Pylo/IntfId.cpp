// SPDX-License-Identifier: Apache-2.0
#include "Pylo/IntfId.h"

#include <ostream>
#include <string>

namespace Pylo {

namespace {

struct Abbreviation {
  std::string_view prefix;
  std::string_view brief;
};

constexpr Abbreviation abbreviations[] = {
    {"Ethernet", "Et"}, {"Fabric", "Fc"}, {"Port-Channel", "Po"}, {"Management", "Ma"},
    {"Loopback", "Lo"}, {"Vlan", "Vl"},   {"Cpu", "Cp"},          {"Copp", "Co"},
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

Kes::String abbreviated(Kes::String const& name) {
  std::string_view const text = name.view();
  for (auto const& [prefix, brief] : abbreviations)
    if (text.size() > prefix.size() && text.starts_with(prefix) && isDigit(text[prefix.size()]))
      return std::string(brief).append(text.substr(prefix.size()));
  if (text.size() == 1) return std::string(text) + '_';
  return name;
}

Kes::String const& emptyName() {
  static Kes::String const empty;
  return empty;
}

}  // namespace

IntfId::Names::Names(Kes::String const& name)
    : hash(Kes::hashBytes(name.view())), full(name), brief(abbreviated(name)) {}

IntfId::IntfId(Kes::String const& name) {
  if (!name.empty()) names_ = Kes::makePtr<Names const>(name);
}

Kes::String const& IntfId::stringValue() const noexcept { return names_ ? names_->full : emptyName(); }
Kes::String const& IntfId::shortName() const noexcept { return names_ ? names_->brief : emptyName(); }

bool IntfId::sameText(IntfId const& other) const noexcept {
  return hash() == other.hash() && stringValue() == other.stringValue();
}

std::ostream& operator<<(std::ostream& out, IntfId const& id) { return out << id.stringValue(); }

}  // namespace Pylo
