// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <functional>
#include <span>
#include <tuple>
#include <utility>

#include "Kes/ByName/GenericValue.h"
#include "Kes/ByName/Type.h"
#include "Kes/Format.h"

// The language of attribute tables: an attribute is one line that names it and the C++ operations behind it.
// A line that does not fit the class does not compile.
//
//   using Define = Kes::Define<Entry>;
//   Define::attribute<&Entry::qLen, &Entry::qLenIs>("qLen"),
//   Define::function<&Entry::dumpGlobalBuffer>("dumpGlobalBuffer", "filePtr", "elapsedTime"),
//
// A collection lists its operations. Those that are overloaded are chosen by their arguments:
//
//   Define::collection<&Chunk::entryIterator>("entry",
//       {Define::op<OpCode::member, &Chunk::entry>("key"),
//        Define::op<OpCode::memberDel, Kes::pick<EntryIndex>(&Chunk::entryDel)>("key")})
namespace Kes {

// The overload of a member function that takes just these arguments.
template <class... A>
struct Pick {
  template <class R, class C>
  constexpr auto operator()(R (C::*function)(A...)) const {
    return function;
  }
};
template <class... A>
inline constexpr Pick<A...> pick;

namespace detail {

// Result, object and arguments of a function of class C. One whose object is not const changes it. A free
// function whose first argument is a C& stands for a member.
template <class C, class F>
struct Signature;
template <class R, class Object, class... A>
struct SignatureOf {
  using Result = R;
  using Self = Object;  // void: static
  using Arguments = std::tuple<std::decay_t<A>...>;
};
template <class C, class B, class R, class... A>
struct Signature<C, R (B::*)(A...)> : SignatureOf<R, C, A...> {};
template <class C, class B, class R, class... A>
struct Signature<C, R (B::*)(A...) const> : SignatureOf<R, C const, A...> {};
template <class C, class R, class... A>
struct Signature<C, R (*)(A...)> : SignatureOf<R, void, A...> {};
template <class C, class R, class... A>
struct Signature<C, R (*)(C&, A...)> : SignatureOf<R, C, A...> {};

template <class T>
struct TypeOf : GenericOf<T> {};
template <class T>
struct TypeOf<Ptr<T>> : GenericOf<std::remove_const_t<T>> {};
template <class T>
  requires std::derived_from<T, PtrInterface>
struct TypeOf<T*> : GenericOf<std::remove_const_t<T>> {
};

// The arguments of a call, in the operation's order. UnknownArgumentException, MissingArgumentException.
KES_EXPORT void match(Call const& call, std::span<GenericIf const*> matched);

template <class T>
T argument(Call const& call, std::size_t index, GenericIf const* given) {
  try {
    return fromGeneric<T>(*given);
  } catch (TypeException const& failure) {
    throw TypeException(failure.text(), call.operation.arguments[index].name);
  }
}

template <class Self>
Self& selfOf(GenericIf& self) {
  using C = std::remove_const_t<Self>;
  if constexpr (std::derived_from<C, PtrInterface>) {
    auto& pointer = static_cast<GenericPtrIf&>(self);
    if (pointer.constant() && !std::is_const_v<Self>)
      throw ReadOnlyException(format("the %s is a constant one", pointer.type().name()),
                              pointer.type().name());
    if (pointer.object() == nullptr) throw RangeException("null ValidPtr");
    return const_cast<C&>(static_cast<C const&>(*pointer.object()));
  } else {
    return static_cast<GenericValue<C>&>(self).value();
  }
}

// A setter that answers its object has no result of its own.
template <class C, class R>
inline constexpr bool hasResult = !std::is_void_v<R> && !std::is_same_v<R, C&>;

template <class T>
inline constexpr bool isObject = false;
template <class T>
inline constexpr bool isObject<Ptr<T>> = true;

template <class C, auto function>
GenericIf::Ptr run(Call const& call) {
  using Signature = Signature<C, decltype(function)>;
  using Arguments = typename Signature::Arguments;
  using Self = typename Signature::Self;
  return [&]<std::size_t... index>(std::index_sequence<index...>)->GenericIf::Ptr {
    std::array<GenericIf const*, sizeof...(index)> given{};
    match(call, given);
    auto const invoke = [&](auto&&... object) -> decltype(auto) {
      Arguments arguments{argument<std::tuple_element_t<index, Arguments>>(call, index, given[index])...};
      return std::invoke(function, object..., std::get<index>(arguments)...);
    };
    auto const invokeWithSelf = [&]() -> decltype(auto) {
      if constexpr (std::is_void_v<Self>)
        return invoke();
      else
        return invoke(selfOf<Self>(*call.self));
    };
    using Result = std::decay_t<typename Signature::Result>;
    if constexpr (!hasResult<C, typename Signature::Result>) {
      invokeWithSelf();
      return nullptr;
    } else if constexpr (isObject<Result>) {
      // The result's place is made first, so that nothing can fail once the operation has done its work.
      GenericIf::Ptr const result = toGeneric(Result());
      static_cast<GenericPtrIf&>(*result).objectIs(Result(invokeWithSelf()).get());
      return result;
    } else {
      auto* const place = new typename GenericOf<Result>::If(Result());
      GenericIf::Ptr const result(place);
      place->value() = invokeWithSelf();
      return result;
    }
  }
  (std::make_index_sequence<std::tuple_size_v<Arguments>>());
}

// The numbers 0 to count - 1 in a stable order. Not a template, of which there would be one a collection.
KES_EXPORT std::vector<U32> sorted(std::size_t count, std::function<bool(U32, U32)> const& less);

template <class Key, class Value>
class Members final : public GenericIterator {
 public:
  template <class Iterator>
  explicit Members(Iterator at) {
    for (; at; ++at) members_.emplace_back(at.key(), *at);
    order_ = sorted(members_.size(), [&](U32 a, U32 b) { return members_[a].first < members_[b].first; });
  }

  explicit operator bool() const override { return at_ < order_.size(); }
  GenericIf::Ptr key() const override { return toGeneric(members_[order_[at_]].first); }
  GenericIf::Ptr value() const override { return toGeneric(members_[order_[at_]].second); }
  GenericIterator& operator++() override {
    ++at_;
    return *this;
  }

 private:
  std::vector<std::pair<Key, Value>> members_;
  std::vector<U32> order_;
  std::size_t at_ = 0;
};

}  // namespace detail

// Makes the lines of the table of class C.
template <class C>
struct Define {
  template <OpCode code, auto operation, class... Names>
  static Operation op(Names... argumentNames) {
    using Signature = detail::Signature<C, decltype(operation)>;
    using Arguments = typename Signature::Arguments;
    static_assert(sizeof...(Names) == std::tuple_size_v<Arguments>, "one name an argument");
    TypeGetter result = nullptr;
    if constexpr (detail::hasResult<C, typename Signature::Result>)
      result = &detail::TypeOf<std::decay_t<typename Signature::Result>>::type;
    return [&]<std::size_t... index>(std::index_sequence<index...>) {
      return Operation{
          code,
          result,
          {Argument{argumentNames, &detail::TypeOf<std::tuple_element_t<index, Arguments>>::type}...},
          &detail::run<C, operation>};
    }
    (std::make_index_sequence<sizeof...(Names)>());
  }

  // Mutable: its getter, its setter, and its incrementer if it has one.
  template <auto get, auto set, auto... inc>
  static Attribute attribute(std::string_view name) {
    return withFirst(
        name, AttributeKind::mutableAttribute,
        {op<OpCode::read, get>(), op<OpCode::set, set>("value"), op<OpCode::inc, inc>("amount")...});
  }
  template <auto get>
  static Attribute fixed(std::string_view name) {
    return withFirst(name, AttributeKind::fixedAttribute, {op<OpCode::read, get>()});
  }
  template <auto get>
  static Attribute constant(std::string_view name) {
    return withFirst(name, AttributeKind::constant, {op<OpCode::read, get>()});
  }

  template <auto operation>
  static Attribute procedure(std::string_view name) {
    return withFirst(name, AttributeKind::procedure, {op<OpCode::call, operation>()});
  }
  template <auto operation, class... Names>
  static Attribute function(std::string_view name, Names... argumentNames) {
    return withFirst(name, AttributeKind::function, {op<OpCode::call, operation>(argumentNames...)});
  }

  template <auto iterator>
  static Attribute collection(std::string_view name, std::vector<Operation> operations, bool owned = false) {
    using Iterator = decltype(std::invoke(iterator, std::declval<C const&>()));
    using Key = std::decay_t<decltype(std::declval<Iterator>().key())>;
    using Value = std::decay_t<decltype(*std::declval<Iterator>())>;
    return {name,
            AttributeKind::collection,
            &detail::TypeOf<Value>::type,
            &detail::TypeOf<Key>::type,
            owned,
            std::move(operations),
            [](GenericIf& self) -> std::unique_ptr<GenericIterator> {
              return std::make_unique<detail::Members<Key, Value>>(
                  std::invoke(iterator, detail::selfOf<C const>(self)));
            }};
  }
  // Its members live and die with the object.
  template <auto iterator>
  static Attribute ownedCollection(std::string_view name, std::vector<Operation> operations) {
    return collection<iterator>(name, std::move(operations), /*owned=*/true);
  }

  // A free function that makes an instance.
  template <auto make, class... Names>
  static Operation constructor(Names... argumentNames) {
    return op<OpCode::call, make>(argumentNames...);
  }
  // Of a value type: from its text.
  static Operation valueConstructor() { return constructor<&same>("value"); }

  // How objects of C get their generic interface.
  static GenericIf::Ptr wrap(PtrInterface const* object, bool constant) {
    return GenericIf::Ptr(new typename GenericOf<C>::If(object, constant));
  }

 private:
  static C same(C value) { return value; }

  // The attribute's type is the result of its first operation.
  static Attribute withFirst(std::string_view name, AttributeKind kind, std::vector<Operation> operations) {
    TypeGetter const type = operations.front().result;
    return {name, kind, type, nullptr, false, std::move(operations), nullptr};
  }
};

}  // namespace Kes
