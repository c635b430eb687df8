// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/Uevents.h"

#include <cerrno>
#include <filesystem>
#include <libudev.h>
#include <poll.h>
#include <utility>

namespace meridal {

namespace {

bool canBeRead(int descriptor)
{
    pollfd entry{.fd = descriptor, .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, 0) > 0;
}

} // namespace

Uevents::Uevents(Runtime& runtime, const std::filesystem::path& root, std::initializer_list<const char*> subsystems,
    std::function<void()> handler)
    : handler_(std::move(handler))
{
    if (root != "/") {
        return;
    }
    std::error_code ignored;
    const bool hasUdev = std::filesystem::exists("/run/udev/control", ignored);
    udev_ = udev_new();
    monitor_ = udev_ ? udev_monitor_new_from_netlink(udev_, hasUdev ? "udev" : "kernel") : nullptr;
    const bool isFiltered =
        monitor_ && std::all_of(subsystems.begin(), subsystems.end(), [this](const char* subsystem) {
            return udev_monitor_filter_add_match_subsystem_devtype(monitor_, subsystem, nullptr) >= 0;
        });
    if (monitor_ && (!isFiltered || udev_monitor_enable_receiving(monitor_) < 0)) {
        monitor_ = udev_monitor_unref(monitor_);
    }
    if (monitor_) {
        watch_ = runtime.watchReadable(udev_monitor_get_fd(monitor_), [this] { receive(); });
    }
}

Uevents::~Uevents()
{
    watch_.reset();
    udev_monitor_unref(monitor_);
    udev_unref(udev_);
}

void Uevents::receive()
{
    constexpr int mostAtOnce = 256; // before others on the main queue have their turn
    bool any = false;
    const int descriptor = udev_monitor_get_fd(monitor_);
    for (int i = 0; i < mostAtOnce && canBeRead(descriptor); ++i) {
        errno = 0;
        udev_device* device = udev_monitor_receive_device(monitor_);
        // Too many to be kept: what was lost may have been ours. What the filter turned away says nothing.
        any = any || device || errno == ENOBUFS;
        udev_device_unref(device);
    }
    if (any) {
        handler_();
    }
}

} // namespace meridal
