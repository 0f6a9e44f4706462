#pragma once

// Marks what libzn.so.1.0 exports. Everything else in the library is hidden.
#define CORVANE_ZN_API __attribute__((visibility("default")))
