#pragma once

// Marks what libPylo offers across its boundary; everything else is built with hidden visibility.
#define PYLO_EXPORT __attribute__((visibility("default")))
