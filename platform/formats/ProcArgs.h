// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace meridal {

/// The path of the program in a process's argument area as macOS hands it out (KERN_PROCARGS2): a 4-byte argument count,
/// the path as it was given to exec, a NUL and padding, then arguments and environment. Looks at nothing beyond the
/// bytes given. Absent when the path is empty or has no end: a cut path would give a wrong name. Raw bytes; the view
/// is into the area.
std::optional<std::string_view> executablePathOfProcArgs(std::string_view area);

/// The arguments in it, each ended by a NUL, and nothing of the environment, which is the process's own business. Those that
/// are whole, where the area was cut. Absent when there are none.
std::optional<std::string_view> argumentsOfProcArgs(std::string_view area);

/// The outermost folder around a program whose name ends in ".app": the application that a helper within it is part of.
/// The path itself where there is none.
std::string_view applicationOfProgram(std::string_view path);

} // namespace meridal
