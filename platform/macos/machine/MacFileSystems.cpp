// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include "base/Text.h"

#include <sys/mount.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace meridal {

namespace {

/// Volumes that the Finder does not show are the system's own, but for the one that it started from.
bool holdsData(const struct statfs& status)
{
    const std::string_view type = status.f_fstypename;
    const bool isRoot = std::strcmp(status.f_mntonname, "/") == 0;
    return (isRoot || (status.f_flags & MNT_DONTBROWSE) == 0) && type != "autofs" && type != "devfs"
        && status.f_blocks > 0;
}

class MacFileSystems final : public FileSystems {
public:
    std::vector<FileSystemRecord> read() override;
};

std::vector<FileSystemRecord> MacFileSystems::read()
{
    constexpr int mayHaveCome = 8;
    const int known = getfsstat(nullptr, 0, MNT_NOWAIT);
    if (known <= 0) {
        return {};
    }
    std::vector<struct statfs> all(static_cast<std::size_t>(known + mayHaveCome));
    // What the kernel knows, without asking servers, of which one may not answer.
    const int got = getfsstat(all.data(), static_cast<int>(all.size() * sizeof(struct statfs)), MNT_NOWAIT);
    all.resize(static_cast<std::size_t>(std::max(got, 0)));
    std::vector<FileSystemRecord> records;
    for (const struct statfs& status : all) {
        if (holdsData(status)) {
            records.push_back({.mount = validUtf8(status.f_mntonname),
                .device = validUtf8(status.f_mntfromname),
                .type = validUtf8(status.f_fstypename),
                .readOnly = (status.f_flags & MNT_RDONLY) != 0,
                .room = roomOf(status, status.f_bsize)});
        }
    }
    std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) { return a.mount < b.mount; });
    return records;
}

} // namespace

std::unique_ptr<FileSystems> makeMacFileSystems() { return std::make_unique<MacFileSystems>(); }

} // namespace meridal
