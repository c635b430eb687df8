// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace meridal {

/// Runs what the system called us for outside of any task of the runtime, in an autorelease pool of its own: the main thread's
/// is never drained.
void runCallback(const std::function<void()>& body);

/// The same; an Objective-C exception ends the body, and its reason is the answer. Exceptions of C++ go through.
std::optional<std::string> runCatching(const std::function<void()>& body);

} // namespace meridal
