// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

// The headers below include/ declare of macOS what platform/macos uses, so that its adapters are compiled and run where
// there is no Mac. Where there is an SDK, SystemDeclarations.cpp reads the same lines behind the real headers: a function
// declared otherwise does not compile there, and a constant of another value is refused.

#ifdef MERIDAL_BESIDE_REAL_HEADERS
#define MAC_CONSTANT(type, name, ...) static_assert(static_cast<type>(name) == static_cast<type>(__VA_ARGS__))
#define MAC_TEXT(name, text) static_assert(std::string_view(name) == text)
#else
#define MAC_CONSTANT(type, name, ...) inline constexpr type name = static_cast<type>(__VA_ARGS__)
#define MAC_TEXT(name, text) inline constexpr char name[] = text
#endif
