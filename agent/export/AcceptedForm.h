// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "agent/serve/MetricsForm.h"

namespace Agent {

// Which form of metrics a client wants, by what the Accept headers of its request say: OpenMetrics if it is
// named and nothing that the older text fits is preferred.
MetricsForm acceptedForm(std::string_view accept);

}  // namespace Agent
