// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/RootFolder.h"

#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// What people call a container, out of the files in which its runtime keeps that; nobody is asked. Of Docker
/// (containers/ID/config.v2.json in its data folder), of Podman and CRI-O (containers.json of the system's storage) and
/// of Kubernetes ("pod/container", from the links in /var/log/containers). Containers of users without root keep theirs in
/// homes, which are not searched. Absent when no file knows it.
std::optional<std::string> containerName(const RootFolder& root, std::string_view id);

} // namespace meridal
