#pragma once

// Marks what libVorn offers across its boundary; everything else is built with hidden visibility.
#define VORN_EXPORT __attribute__((visibility("default")))
