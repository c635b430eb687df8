// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/MountTable.h"

#include "platform/linux/kernel/ProcParsers.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

std::string_view takeMountField(std::string_view& line)
{
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return word;
}

bool isOctal(char digit) { return digit >= '0' && digit <= '7'; }

/// Blanks, line ends and backslashes stand there as a backslash and three octal digits.
std::string withoutEscapes(std::string_view text)
{
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 3 < text.size() && isOctal(text[at + 1]) && isOctal(text[at + 2])
            && isOctal(text[at + 3])) {
            plain += static_cast<char>((text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 + text[at + 3] - '0');
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

bool isReadOnly(std::string_view options) { return options == "ro" || options.starts_with("ro,"); }

bool isMadeUp(std::string_view type)
{
    constexpr std::array<std::string_view, 31> types = {"autofs", "binder", "binfmt_misc", "bpf", "cgroup", "cgroup2",
        "configfs", "debugfs", "devpts", "devtmpfs", "efivarfs", "erofs", "fuse.gvfsd-fuse", "fuse.lxcfs",
        "fuse.portal", "fusectl", "hugetlbfs", "mqueue", "nsfs", "proc", "pstore", "ramfs", "rootfs", "rpc_pipefs",
        "securityfs", "selinuxfs", "squashfs", "sysfs", "tmpfs", "tracefs", "vboxsf"};
    return std::find(types.begin(), types.end(), type) != types.end();
}

bool isLayered(std::string_view type) { return type == "overlay" || type == "aufs" || type == "fuse.fuse-overlayfs"; }

/// The whole file system before a part of it, then the shortest way there.
auto rank(const Mount& mount) { return std::tuple(mount.root != "/", mount.point.size(), mount.point); }

} // namespace

std::vector<Mount> parseMountInfo(std::string_view text)
{
    std::vector<Mount> mounts;
    while (const auto next = proc::takeLine(text)) {
        std::string_view line = *next;
        takeMountField(line); // number of the mount
        takeMountField(line); // and of the one below
        Mount mount;
        mount.device = takeMountField(line);
        mount.root = withoutEscapes(takeMountField(line));
        mount.point = withoutEscapes(takeMountField(line));
        mount.readOnly = isReadOnly(takeMountField(line));
        while (!line.empty() && takeMountField(line) != "-") { } // as many fields as the kernel likes
        mount.type = takeMountField(line);
        mount.source = withoutEscapes(takeMountField(line));
        mount.readOnly = mount.readOnly || isReadOnly(line);
        if (!mount.type.empty()) {
            mounts.push_back(std::move(mount));
        }
    }
    return mounts;
}

std::vector<Mount> mountsWithData(std::vector<Mount> mounts)
{
    std::map<std::string, Mount> visible; // by point
    for (Mount& mount : mounts) {
        visible[mount.point] = std::move(mount);
    }
    std::map<std::string, Mount> found; // by file system
    for (auto& [point, mount] : visible) {
        if (isMadeUp(mount.type) || (isLayered(mount.type) && point != "/")) {
            continue;
        }
        const auto [entry, isFirst] = found.emplace(mount.device, mount);
        if (!isFirst && rank(mount) < rank(entry->second)) {
            entry->second = std::move(mount);
        }
    }
    std::vector<Mount> chosen;
    for (auto& [device, mount] : found) {
        chosen.push_back(std::move(mount));
    }
    std::sort(chosen.begin(), chosen.end(), [](const Mount& a, const Mount& b) { return a.point < b.point; });
    return chosen;
}

} // namespace meridal
