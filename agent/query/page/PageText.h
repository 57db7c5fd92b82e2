// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

// The page of a timeline, around its data: timeline.html with the style and the script in it, put together by
// the build.
namespace Agent::PageText {

extern std::string_view const beforeData;
extern std::string_view const behindData;

}  // namespace Agent::PageText
