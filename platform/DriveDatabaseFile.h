// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>

namespace meridal {

/// The first of the files that can be read; empty without one. Files that nobody would keep a database of drives in are
/// left alone: those that are none, and those larger than 4 MiB.
std::string readDriveDatabase(std::initializer_list<std::filesystem::path> places);

} // namespace meridal
