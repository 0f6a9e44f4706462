#pragma once

// Marks what libzps.so.1.0 exports. Everything else in the library is hidden.
#define CORVANE_ZPS_API __attribute__((visibility("default")))
