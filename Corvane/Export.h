#pragma once

// Marks what libzn.so.1.0 exports. Everything else in the library is hidden.
#define CORVANE_ZN_API __attribute__((visibility("default")))
// Keeps a class private that is declared inside an exported one, whose visibility it would inherit.
#define CORVANE_ZN_HIDDEN __attribute__((visibility("hidden")))
