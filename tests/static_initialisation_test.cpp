// SPDX-License-Identifier: Apache-2.0
// The recorder's library, loaded while nobody listens for types.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "Kes/ByName/TypeRegistry.h"
#include "tests/FailingAllocations.h"

namespace {

// A function of the library that takes nothing, by the name that the compiler gives it (Itanium C++ ABI).
template <class R>
auto function(void* library, char const* mangled) {
  void* const address = ::dlsym(library, mangled);
  EXPECT_NE(address, nullptr) << mangled;
  return reinterpret_cast<R (*)()>(address);
}

TEST(StaticInitialisation, RegistersLaterWhereNobodyListened) {
  Kes::TypeRegistry& registry = Kes::TypeRegistry::instance();
  Kes::IntrospectionReactor::global()->handlerActiveIs(false);
  void* const library = ::dlopen(VORN_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << ::dlerror();
  auto const registerTypes = function<void>(library, "_ZN4Vorn13registerTypesEv");
  auto const registered = function<bool>(library, "_ZN4Vorn15typesRegisteredEv");
  auto const done = function<bool>(library, "_ZN4Vorn18initialisationDoneEv");

  EXPECT_TRUE(done());
  EXPECT_FALSE(registered());
  EXPECT_EQ(registry.types().size(), 1U);  // the base of all objects
  Kes::AttributeHandle const& qLen = registry.typeNode("Vorn::Entry").attributeHandle("qLen");
  EXPECT_EQ(qLen.attribute(), nullptr);
  registerTypes();
  EXPECT_FALSE(registered());
  EXPECT_EQ(registry.type("Vorn::Entry"), nullptr);

  Kes::IntrospectionReactor::global()->handlerActiveIs(true);
  // Memory runs out at every point in turn: all types are registered, or none. What was made on the way to a
  // failure stays, so each time but the first memory lasts for one step.
  bool failed = true;
  for (std::size_t failures = 0; failed; ++failures) {
    EXPECT_FALSE(registered());
    allocationsLeft = failures == 0 ? 0 : 1;
    try {
      registerTypes();
      failed = false;
      EXPECT_GT(failures, 0U);
    } catch (std::bad_alloc const&) {
    }
    allocationsLeft = forever;
    EXPECT_EQ(registry.types().size(), failed ? 1U : 13U) << failures;
    EXPECT_EQ(registry.type("Vorn::Microseconds") == nullptr, failed) << failures;
  }
  registerTypes();
  EXPECT_TRUE(registered());
  ASSERT_NE(qLen.attribute(), nullptr);
  EXPECT_EQ(qLen.attribute()->identifier, 130U);
  EXPECT_EQ(registry.types().back()->name(), "Vorn::CongestionData");
}

}  // namespace
