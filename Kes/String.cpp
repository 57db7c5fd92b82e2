// SPDX-License-Identifier: Apache-2.0
#include "Kes/String.h"

#include <ostream>

namespace Kes {

String::String(std::string_view text) {
  if (!text.empty()) bytes_ = makePtr<Bytes const>(text);
}

std::ostream& operator<<(std::ostream& out, String const& text) { return out << text.view(); }

}  // namespace Kes
