#pragma once

/// Marks what leaves the shared library `tarnwick`; everything else in it is hidden.
#if defined(_WIN32)
#define TARNWICK_EXPORT __declspec(dllexport)
#else
#define TARNWICK_EXPORT __attribute__((visibility("default")))
#endif
