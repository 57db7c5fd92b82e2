// SPDX-License-Identifier: Apache-2.0
#pragma once

// Marks what libVorn offers across its boundary; everything else is built with hidden visibility.
#define VORN_EXPORT __attribute__((visibility("default")))
// A private member of an exported class that no header uses: not part of what others link against.
#define VORN_LOCAL __attribute__((visibility("hidden")))
