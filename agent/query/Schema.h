// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

namespace Agent {

// Writes the JSON schema (2020-12) of the reports as JSON, made from the tables of their columns: an array
// under the name of each report, and its objects.
void writeSchema(std::FILE* out);

}  // namespace Agent
