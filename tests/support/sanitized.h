#pragma once

// Under which sanitizers this program is built. Their run time must come first in the process, so nothing can be loaded
// in front of it; it keeps what is freed, and its memory says nothing about the program's.
#ifdef __has_feature
inline constexpr bool kAddressSanitized = __has_feature(address_sanitizer);
inline constexpr bool kSanitized = kAddressSanitized || __has_feature(thread_sanitizer);
#else
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kAddressSanitized = true;
#else
inline constexpr bool kAddressSanitized = false;
#endif
#ifdef __SANITIZE_THREAD__
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = kAddressSanitized;
#endif
#endif
