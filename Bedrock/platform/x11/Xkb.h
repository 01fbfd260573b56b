#pragma once
#pragma GCC system_header // the trick below is not one to warn of

// The header of the keyboard extension has a field whose name is a word of the language.
#define explicit explicitField
#include <xcb/xkb.h>
#undef explicit
