// SPDX-License-Identifier: Apache-2.0
#pragma once

// Marks what libKes offers across its boundary; everything else is built with hidden visibility. Classes that
// are derived from, caught or compared in other libraries are exported whole, so that their type information
// is one object in the process.
#define KES_EXPORT __attribute__((visibility("default")))
// A private member of an exported class that no header uses: not part of what others link against.
#define KES_LOCAL __attribute__((visibility("hidden")))
