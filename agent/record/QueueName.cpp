// SPDX-License-Identifier: Apache-2.0
#include "agent/record/QueueName.h"

#include <charconv>

namespace Agent {

QueueName QueueName::ofKey(QueueKey key) {
  if (key == 0) return QueueName("root");
  if (key == noQueue) return QueueName("-");
  QueueName name = ofHandle(key);
  char* const end = name.text_.data() + name.length_;
  name.endIs(std::to_chars(end, name.text_.end(), key & 0xFFFF, 16).ptr);
  return name;
}

QueueName QueueName::ofHandle(Kes::U32 handle) {
  QueueName name("");
  char* end = name.text_.data();
  if (handle >> 16 != 0) end = std::to_chars(end, name.text_.end(), handle >> 16, 16).ptr;
  *end++ = ':';
  name.endIs(end);
  return name;
}

QueueKey QueueName::keyOf(std::string_view name) {
  if (name == "root") return 0;
  std::size_t const colon = name.find(':');
  if (colon == std::string_view::npos) return noQueue;
  QueueKey major = 0;
  QueueKey minor = 0;
  std::from_chars(name.data(), name.data() + colon, major, 16);
  std::from_chars(name.data() + colon + 1, name.data() + name.size(), minor, 16);
  return major << 16 | minor;
}

}  // namespace Agent
