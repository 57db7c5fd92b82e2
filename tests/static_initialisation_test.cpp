// The recorder's library, loaded while nobody listens for types.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "Kes/ByName/TypeRegistry.h"

namespace {
// How many allocations are left before all fail.
constexpr std::size_t forever = ~std::size_t{0};
std::size_t allocationsLeft = forever;
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocationsLeft == 0) throw std::bad_alloc();
  allocationsLeft -= allocationsLeft != forever;
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

// Lets memory run out at every point in turn: all types are registered, or none. What was made on the way to
// a failure stays, so each time but the first memory lasts for one step. The number of failures.
template <class Register>
std::size_t registeredInTurn(Register const& run, std::string_view first, std::size_t count) {
  Kes::TypeRegistry& registry = Kes::TypeRegistry::instance();
  std::size_t const before = registry.types().size();
  for (std::size_t failures = 0;; ++failures) {
    allocationsLeft = failures == 0 ? 0 : 1;
    try {
      run();
      allocationsLeft = forever;
      EXPECT_EQ(registry.types().size(), before + count);
      return failures;
    } catch (std::bad_alloc const&) {
      allocationsLeft = forever;
    }
    EXPECT_EQ(registry.types().size(), before) << failures;
    EXPECT_EQ(registry.type(first), nullptr) << failures;
  }
}

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
  auto const run = [&] {
    EXPECT_FALSE(registered());
    registerTypes();
  };
  EXPECT_GT(registeredInTurn(run, "Vorn::Microseconds", 12), 0U);
  registerTypes();
  EXPECT_TRUE(registered());
  ASSERT_NE(qLen.attribute(), nullptr);
  EXPECT_EQ(qLen.attribute()->identifier, 130U);
  EXPECT_EQ(registry.types().size(), 13U);
  EXPECT_EQ(registry.types().back()->name(), "Vorn::CongestionData");
}

}  // namespace
