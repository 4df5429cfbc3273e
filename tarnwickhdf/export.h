#pragma once

/// Marks what leaves the shared library `tarnwickhdf`; everything else in it is hidden.
#if defined(_WIN32)
#define TARNWICKHDF_EXPORT __declspec(dllexport)
#else
#define TARNWICKHDF_EXPORT __attribute__((visibility("default")))
#endif
