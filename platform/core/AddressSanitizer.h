#pragma once

/// Whether this is compiled for the address sanitizer, whose own allocator watches what malloc alone gives and is slow
/// for large arrays.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitized = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitized = false;
#endif
