#pragma once

// Marks what libzps.so.1.0 exports. Everything else in the library is hidden.
#define CORVANE_ZPS_API __attribute__((visibility("default")))
// Keeps a private member of an exported class private, which would inherit the visibility of the class. Not for what an
// inline function or a template of the header uses.
#define CORVANE_ZPS_HIDDEN __attribute__((visibility("hidden")))
