// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>

#include "Kes/Export.h"
#include "Kes/String.h"

namespace Kes {

// Base of all that the framework throws. Copying shares the text, so a copy cannot fail.
class KES_EXPORT Exception : public std::exception {
 public:
  explicit Exception(String text) : text_(std::move(text)) {}
  ~Exception() override;

  char const* what() const noexcept override { return text_.charPtr(); }
  String const& text() const { return text_; }

 private:
  String text_;
};

// Misuse of a bounded value or container, or a text that does not read as a value. Each operation documents
// its text and the state it leaves behind.
class KES_EXPORT RangeException : public Exception {
 public:
  using Exception::Exception;
  ~RangeException() override;
};

// Text that does not read as a value. Reading a whole text (readWhole) adds the column to it.
class KES_EXPORT ParseException final : public RangeException {
 public:
  using RangeException::RangeException;
};

}  // namespace Kes
