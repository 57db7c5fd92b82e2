// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "Kes/Exception.h"
#include "Kes/Export.h"
#include "Kes/String.h"

namespace Kes {

// What access by name (GenericIf.h) can complain of. `subject` is the name of the attribute or argument, or
// the text of the key, that was at fault.
class KES_EXPORT AccessException : public Exception {
 public:
  AccessException(String text, String subject) : Exception(std::move(text)), subject_(std::move(subject)) {}
  ~AccessException() override;

  String const& subject() const { return subject_; }

 private:
  String subject_;
};

// The type has no attribute of that name or identifier.
class KES_EXPORT UnknownAttributeException final : public AccessException {
 public:
  using AccessException::AccessException;
};
// The operation takes no argument of that name, or takes it once. Text: the short name of the type.
class KES_EXPORT UnknownArgumentException final : public AccessException {
 public:
  using AccessException::AccessException;
};
class KES_EXPORT MissingArgumentException final : public AccessException {
 public:
  using AccessException::AccessException;
};
// A value or object of another type than the one wanted. Text: the short name of the type wanted.
class KES_EXPORT TypeException final : public AccessException {
 public:
  using AccessException::AccessException;
};
// The attribute cannot be set, or the object is held as a constant one.
class KES_EXPORT ReadOnlyException final : public AccessException {
 public:
  using AccessException::AccessException;
};
// The attribute has no such operation.
class KES_EXPORT UnknownOperationException final : public AccessException {
 public:
  using AccessException::AccessException;
};
// The collection has no member under the key.
class KES_EXPORT KeyNotFoundException final : public AccessException {
 public:
  using AccessException::AccessException;
};

}  // namespace Kes
