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
