// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LocalZone.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace Agent {

LocalZone::LocalZone(std::time_t moment) {
  std::tm local{};
  localtime_r(&moment, &local);
  letters_ = local.tm_zone;
  offset_ = local.tm_gmtoff;
  length_ = std::strftime(text_.data(), text_.size(), "%z", &local);
  offsetText_.assign(text_.data(), std::exchange(length_, 0)).insert(3, ":");
}

LocalZone LocalZone::utc() {
  LocalZone zone;
  zone.letters_ = "UTC";
  zone.offsetText_ = "+00:00";
  return zone;
}

LocalZone& LocalZone::ofReports() {
  static LocalZone zone(std::time(nullptr));
  return zone;
}

std::string LocalZone::name() const {
  auto const isLetter = [](unsigned char c) { return std::isalpha(c) != 0; };
  return std::any_of(letters_.begin(), letters_.end(), isLetter) ? letters_ + ", " + offsetText_
                                                                 : offsetText_;
}

std::string_view LocalZone::second(std::time_t second) {
  if (second != lastSecond_ || length_ == 0) {
    std::tm local{};
    std::time_t const shifted = second + offset_;
    gmtime_r(&shifted, &local);
    length_ = std::strftime(text_.data(), text_.size(), "%Y-%m-%d %H:%M:%S", &local);
    lastSecond_ = second;
  }
  return {text_.data(), length_};
}

std::string_view LocalZone::moment(Vorn::Microseconds time) {
  constexpr std::size_t digits = 6;
  constexpr Kes::U64 inSecond = Vorn::Microseconds::microsecondsInSecond();
  std::size_t const whole = second(static_cast<std::time_t>(time.value() / inSecond)).size();
  text_[whole] = '.';
  Kes::U64 rest = time.value() % inSecond;
  for (std::size_t i = whole + digits; i > whole; --i, rest /= 10)
    text_[i] = static_cast<char>('0' + rest % 10);
  return {text_.data(), whole + 1 + digits};
}

std::string rfc3339(Vorn::Microseconds time) {
  LocalZone zone = LocalZone::utc();
  std::string text(zone.moment(time));
  text[text.find(' ')] = 'T';
  return text + 'Z';
}

}  // namespace Agent
