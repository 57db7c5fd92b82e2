// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "Kes/Hash.h"
#include "Kes/Ptr.h"
#include "Kes/String.h"
#include "Pylo/Export.h"

namespace Pylo {

// Identifies a network interface by its name. Empty or set; copying shares one immutable object that carries
// the full name, the short name and their hash, so lookups hash no text. Two identifiers are equal when their
// full names are; they order by full name, byte by byte.
class PYLO_EXPORT IntfId {
 public:
  // The empty identifier, as is one made from an empty name.
  IntfId() noexcept = default;
  explicit IntfId(Kes::String const& name);

  bool empty() const noexcept { return !names_; }
  // The full name, such as "Ethernet3/1" or "eth0"; empty for the empty identifier.
  Kes::String const& stringValue() const noexcept;
  // The name for reports and messages: Ethernet, Fabric, Port-Channel, Management, Loopback, Vlan, Cpu and
  // Copp are cut to Et, Fc, Po, Ma, Lo, Vl, Cp and Co where a digit follows ("Ethernet3/1" is "Et3/1"). Any
  // other name is its own short name, a one-letter name with an underscore appended, because reports order
  // interfaces by what follows the second character. Empty for the empty identifier.
  Kes::String const& shortName() const noexcept;
  Kes::U64 hash() const noexcept { return names_ ? names_->hash : 0; }

  friend bool operator==(IntfId const& a, IntfId const& b) noexcept {
    return a.names_ == b.names_ || a.sameText(b);
  }
  friend std::strong_ordering operator<=>(IntfId const& a, IntfId const& b) noexcept {
    return a.stringValue() <=> b.stringValue();
  }

 private:
  bool sameText(IntfId const& other) const noexcept;

  struct Names final : Kes::PtrInterface {
    PYLO_LOCAL explicit Names(Kes::String const& name);
    Kes::U64 const hash;
    Kes::String const full;
    Kes::String const brief;
  };
  Kes::Ptr<Names const> names_;
};

// For hash maps keyed by interface.
struct IntfIdHash {
  Kes::U64 operator()(IntfId const& id) const noexcept { return id.hash(); }
};

// Writes the full name.
PYLO_EXPORT std::ostream& operator<<(std::ostream& out, IntfId const& id);

}  // namespace Pylo
