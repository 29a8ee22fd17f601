// Marks what the shared library exports. Hosts never define anything; the library's own build
// defines ZEVA_BUILDING, and tests that link the code statically define ZEVA_STATIC.
#pragma once

#if defined(_WIN32) && defined(ZEVA_BUILDING)
#define ZEVA_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(ZEVA_STATIC)
#define ZEVA_API __declspec(dllimport)
#elif defined(_WIN32)
#define ZEVA_API
#else
#define ZEVA_API __attribute__((visibility("default")))
#endif
