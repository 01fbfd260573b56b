#pragma once

/// What bears ZEM_API is the boundary of the library; every other symbol stays hidden inside it.
#if defined(_WIN32)
#if defined(ZEM_BUILDING_LIBRARY)
#define ZEM_API __declspec(dllexport)
#else
#define ZEM_API __declspec(dllimport)
#endif
#else
#define ZEM_API __attribute__((visibility("default")))
#endif

/// Lets the compiler compare a printf-style operation's arguments with its format: their positions, counted from 1, and
/// `this` counts; `first` is 0 for a `va_list`.
#if defined(__GNUC__)
#define ZEM_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#else
#define ZEM_PRINTF(format, first)
#endif
