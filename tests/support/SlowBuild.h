// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal::test {

/// Whether a sanitizer watches every step. Long runs are then shortened: what it looks for shows early.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool slowBuild = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool slowBuild = true;
#else
constexpr bool slowBuild = false;
#endif
#else
constexpr bool slowBuild = false;
#endif

} // namespace meridal::test
