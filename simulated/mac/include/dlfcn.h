// SPDX-License-Identifier: Apache-2.0
#pragma once

// include_next is no part of the language, and said to be none outside of system headers.
#pragma GCC system_header
#include_next <dlfcn.h>

// The loader is Linux's own, but the Mac's libraries are what a test says that there is.
extern "C" {
void* openOnMac(const char* path, int mode);
void* lookUpOnMac(void* library, const char* symbol);
}
#define dlopen openOnMac
#define dlsym lookUpOnMac
