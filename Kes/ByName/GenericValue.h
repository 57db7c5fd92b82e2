// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <type_traits>
#include <utility>

#include "Kes/ByName/GenericIf.h"
#include "Kes/ByName/Type.h"
#include "Kes/Strep.h"
#include "Kes/Time.h"

// How C++ values and pointers enter by-name access and come out of it: toGeneric and fromGeneric.
namespace Kes {

// The text of a value type: `write(value)`, and `read(pos, end)` for those that can be made from text. By
// default valueToStrep and the deserialising constructor.
template <class T>
struct Text {
  static String write(T const& value) { return valueToStrep(value); }
  static T read(StrepPos& pos, StrepPos end) { return T(pos, end); }
};

// "true" and "false".
template <>
struct KES_EXPORT Text<bool> {
  static String write(bool value) { return value ? "true" : "false"; }
  static bool read(StrepPos& pos, StrepPos end);
};

template <std::unsigned_integral T>
struct Text<T> {
  static String write(T value) { return valueToStrep(value); }
  static T read(StrepPos& pos, StrepPos end) {
    return static_cast<T>(deserializeUnsigned(pos, end, static_cast<T>(~T{0})));
  }
};

// Results only.
template <>
struct KES_EXPORT Text<S32> {
  static String write(S32 value);
};

// The shortest decimal fraction that reads back as the same number, without exponent.
template <>
struct KES_EXPORT Text<Seconds> {
  static String write(Seconds value);
  static Seconds read(StrepPos& pos, StrepPos end);
};

template <>
struct Text<String> {
  static String write(String const& value) { return value; }
};
template <>
struct Text<CharPtrConst> {
  static String write(CharPtrConst value) { return value; }
};
template <>
struct KES_EXPORT Text<VoidPtr> {
  static String write(VoidPtr);
};

template <class T>
concept ReadableFromText = requires(StrepPos& pos) {
  { Text<T>::read(pos, pos) } -> std::same_as<T>;
};

// The type of a class, and its companion that makes generic interfaces: by default those that the class has
// nested.
template <class T>
struct GenericOf {
  using If = typename T::GenericIf_;
  static Type const& type() { return If::staticType(); }
};

// The generic interface of a value: holds a copy.
template <class T>
class KES_EXPORT GenericValue : public GenericIf {
 public:
  explicit GenericValue(T value) : value_(std::move(value)) {}

  T const& value() const { return value_; }
  T& value() { return value_; }

  Type const& type() const override { return GenericOf<T>::type(); }
  Ptr clone() const override;
  String strRep() const override { return Text<T>::write(value_); }
  void valIs(GenericIf const& other) override;

 private:
  T value_;
};

// The framework's own value types.
#define KES_BASIC_TYPE(T)          \
  template <>                      \
  struct KES_EXPORT GenericOf<T> { \
    using If = GenericValue<T>;    \
    static Type const& type();     \
  }
KES_BASIC_TYPE(bool);
KES_BASIC_TYPE(U8);
KES_BASIC_TYPE(U16);
KES_BASIC_TYPE(U32);
KES_BASIC_TYPE(U64);
KES_BASIC_TYPE(S32);
KES_BASIC_TYPE(Seconds);
KES_BASIC_TYPE(String);
KES_BASIC_TYPE(CharPtrConst);
KES_BASIC_TYPE(VoidPtr);
#undef KES_BASIC_TYPE

template <>
struct GenericOf<PtrInterface> {
  static Type const& type() { return ptrInterfaceType(); }
};

// The generic interface of objects of class C, from which C derives its nested GenericIf_; a class that
// derives from another gives that one's as `Base`.
template <class C, class Base = GenericPtrIf>
class GenericObject : public Base {
 public:
  explicit GenericObject(Kes::Ptr<C> const& object) : GenericObject(object.get(), /*constant=*/false) {}
  explicit GenericObject(Kes::Ptr<C const> const& object) : GenericObject(object.get(), /*constant=*/true) {}
  GenericObject(PtrInterface const* object, bool constant)
      : GenericObject(object, constant, GenericOf<C>::type()) {
    assertThat(object == nullptr || dynamic_cast<C const*>(object) != nullptr, "Kes",
               "GenericObject::GenericObject", "dynamic_cast<C const*>(object)");
  }

 protected:
  GenericObject(PtrInterface const* object, bool constant, Type const& type) : Base(object, constant, type) {}
};

// A value that was made for by-name access, or text that reads as one. TypeException; RangeException for text
// that does not parse.
template <class T>
struct FromGeneric {
  static T of(GenericIf const& generic) {
    if (auto const* const same = dynamic_cast<GenericValue<T> const*>(&generic)) return same->value();
    if constexpr (ReadableFromText<T>) {
      if (auto const* const text = dynamic_cast<GenericValue<String> const*>(&generic))
        return readWhole(text->value(), [](StrepPos& pos, StrepPos end) { return Text<T>::read(pos, end); });
    }
    throw TypeException(GenericOf<T>::type().shortName(), "");
  }
};

// Points into the text, and lives as long as the generic interface does.
template <>
struct KES_EXPORT FromGeneric<CharPtrConst> {
  static CharPtrConst of(GenericIf const& generic);
};

namespace detail {
// The object behind a generic interface; TypeException when it is not of class T, or constant where `mutable`
// is wanted.
template <class T>
T* objectOf(GenericIf const& generic) {
  auto const* const pointer = dynamic_cast<GenericPtrIf const*>(&generic);
  bool const fits = pointer != nullptr && (std::is_const_v<T> || !pointer->constant());
  auto const* const object = fits ? dynamic_cast<T const*>(pointer->object()) : nullptr;
  bool const isNull = fits && pointer->object() == nullptr &&
                      pointer->type().derivesFrom(GenericOf<std::remove_const_t<T>>::type());
  if (object == nullptr && !isNull)
    throw TypeException(GenericOf<std::remove_const_t<T>>::type().shortName(), "");
  return const_cast<T*>(object);
}
}  // namespace detail

template <class T>
struct FromGeneric<Ptr<T>> {
  static Ptr<T> of(GenericIf const& generic) { return Ptr<T>(detail::objectOf<T>(generic)); }
};
template <class T>
  requires std::derived_from<T, PtrInterface>
struct FromGeneric<T*> {
  static T* of(GenericIf const& generic) { return detail::objectOf<T>(generic); }
};

template <class T>
T fromGeneric(GenericIf const& generic) {
  return FromGeneric<T>::of(generic);
}

template <class T>
GenericIf::Ptr toGeneric(T value) {
  return GenericIf::Ptr(new typename GenericOf<T>::If(std::move(value)));
}
inline GenericIf::Ptr toGeneric(char const* text) { return toGeneric(String(text)); }
template <class T>
GenericIf::Ptr toGeneric(Ptr<T> const& object) {
  return genericIfFor(object.get(), std::is_const_v<T>, GenericOf<std::remove_const_t<T>>::type());
}

template <class T>
GenericIf::Ptr GenericValue<T>::clone() const {
  return toGeneric(value_);
}

template <class T>
void GenericValue<T>::valIs(GenericIf const& other) {
  value_ = fromGeneric<T>(other);
}

}  // namespace Kes
