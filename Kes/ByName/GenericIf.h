// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <memory>
#include <string_view>
#include <vector>

#include "Kes/ByName/AccessException.h"
#include "Kes/Export.h"
#include "Kes/Ptr.h"
#include "Kes/String.h"
#include "Kes/Types.h"

// Access by name: reading, setting and calling the attributes of any value or object whose class is known at
// run time only.
//
//   Vorn::Entry::GenericIf_ record(entry);
//   Kes::AttributeId const qLen = record.attributeId("qLen");
//   record.attributeOp({qLen, Kes::OpCode::read})->strRep();                             // "1500"
//   record.attributeOp({qLen, Kes::OpCode::set}, {{"value", Kes::toGeneric(2000U)}});
//
// A generic interface is itself a counted object. It holds a value (a copy of its own: setting an attribute
// of the copy changes only the copy), or a pointer to an object, which it keeps alive. What an attribute is,
// and which operations it has, is told by its type (Type.h).
//
// By-name access refuses nothing that the C++ operations allow, runs the same code, and fails as they do;
// what can go wrong before them is an AccessException, or for text that does not parse a ParseException
// (Exception.h); a null object that is asked for anything is the range exception "null ValidPtr". Arguments
// are matched by name. One that is given as text (a Kes::String) is read as the type wanted; objects and
// untyped pointers have no text form.
namespace Kes {

class GenericIf;
class Type;

// Number of an attribute within its type.
using AttributeId = U32;

// What can be done with an attribute. An attribute has some of these (Type.h: Attribute::operations), each
// with arguments of its own; those in parentheses are usual.
enum class OpCode : U8 {
  read,               // the attribute's value
  set,                // (value)
  inc,                // (amount): adds, answers the new value
  call,               // runs the procedure or function
  member,             // (key): the member under a key
  memberIs,           // (key, value): stores a member, replacing one that is there
  newMember,          // (key, value): inserts a member
  memberDel,          // (key): removes a member and answers it
  memberDelAll,       //
  enq,                // (value): appends
  deq,                // removes the oldest member and answers it
  count,              //
  modificationCount,  //
  metadata,           // the collection's own state as a value, to be restored by
  metadataIs,         // (value)
  notify,             // (key): change hook, does nothing
};

// An operation's name as messages spell it: that of its OpCode; "unknown" for a number that is none.
KES_EXPORT std::string_view nameOf(OpCode code);

struct AttributeOp {
  AttributeId attribute;
  OpCode code;
};

struct GenericArg {
  String name;
  Ptr<GenericIf> value;
};
using GenericArgs = std::vector<GenericArg>;

// Walks the members of a collection by ascending key: those that were there when the walk began.
class KES_EXPORT GenericIterator {
 public:
  virtual ~GenericIterator();
  virtual explicit operator bool() const = 0;
  virtual Ptr<GenericIf> key() const = 0;
  virtual Ptr<GenericIf> value() const = 0;
  virtual GenericIterator& operator++() = 0;
};

class KES_EXPORT GenericIf : public PtrInterface {
 public:
  using Ptr = Kes::Ptr<GenericIf>;

  virtual Type const& type() const = 0;

  // Looks a name up in the type's registration. UnknownAttributeException; also while the type is not
  // registered.
  AttributeId attributeId(std::string_view name) const;

  // Performs one operation on one attribute. Null where the operation has no result. Unknown and missing
  // arguments are found before anything is converted, and all are converted before anything is run.
  Ptr attributeOp(AttributeOp op, GenericArgs const& args = {});

  // UnknownOperationException for an attribute that is no collection.
  std::unique_ptr<GenericIterator> attributeIterator(AttributeId attribute);

  // Of a value: a copy. Of an object: the same one again.
  virtual Ptr clone() const = 0;

  // A new instance of this type, whatever this one holds (Type::construct).
  Ptr genericIfListConstructor(GenericArgs const& args) const;

  // The text of a value. An object has none: TypeException.
  virtual String strRep() const;

  // Sets the whole value from another of the same type, or from text. TypeException otherwise, and for
  // objects.
  virtual void valIs(GenericIf const& other);
};

// The generic interface of an object, which may be null: what is asked of null then raises the range
// exception "null ValidPtr".
class KES_EXPORT GenericPtrIf : public GenericIf {
 public:
  // Through `constant` nothing can be run that changes the object.
  GenericPtrIf(PtrInterface const* object, bool constant, Type const& type);

  Type const& type() const final { return *type_; }
  Ptr clone() const final;

  PtrInterface const* object() const { return object_.get(); }
  // Another object: by its own, most derived registered type where that is one of the type so far.
  void objectIs(PtrInterface const* object) noexcept;
  bool constant() const { return constant_; }

 private:
  Kes::Ptr<PtrInterface const> object_;
  Type const* type_;
  bool const constant_;
};

// The generic interface of an object by its own, most derived registered type; of null, and where that type
// is none of `declared`, by `declared`.
KES_EXPORT GenericIf::Ptr genericIfFor(PtrInterface const* object, bool constant, Type const& declared);

}  // namespace Kes
