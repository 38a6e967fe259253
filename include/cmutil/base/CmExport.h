#pragma once
/// Export macro of libcmutil.so. The library is built with hidden visibility; every
/// public class and function carries CM_EXPORT so that it stays visible to callers.

#if defined(CMUTIL_BUILDING_LIBRARY)
#define CM_EXPORT __attribute__((visibility("default")))
#else
#define CM_EXPORT __attribute__((visibility("default")))
#endif

/// Marks a symbol that stays inside the library even when a header exposes it.
#define CM_NO_EXPORT __attribute__((visibility("hidden")))
