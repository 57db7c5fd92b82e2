// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "Kes/ByName/Type.h"
#include "Vorn/Export.h"

// Registration of the recorder's types. The library does it itself when it is loaded, so that a host finds
// them registered; it is here for a host that keeps the introspection reactor silent at first.
namespace Vorn {

// The twelve types, in order of registration.
VORN_EXPORT std::span<Kes::Type const* const> types();

// Registers the types under the namespace "Vorn", once. Does nothing while the introspection reactor has no
// active handler: a later call can still register.
VORN_EXPORT void registerTypes();

// Whether the registration has run.
VORN_EXPORT bool typesRegistered();

// Whether the library's static initialisation has come past the registration, be it done or left out.
VORN_EXPORT bool initialisationDone();

}  // namespace Vorn
