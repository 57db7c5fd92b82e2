// SPDX-License-Identifier: Apache-2.0
#pragma once

// Marks what libPylo offers across its boundary; everything else is built with hidden visibility.
#define PYLO_EXPORT __attribute__((visibility("default")))
// A private member of an exported class that no header uses: not part of what others link against.
#define PYLO_LOCAL __attribute__((visibility("hidden")))
