// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>

struct udev;
struct udev_monitor;

namespace meridal {

/// Announcements of some subsystems of devices. They come from udev, once it has applied its rules, where it runs, and
/// else from the kernel itself: containers and small systems have no udev. Several that come together are one call.
class Uevents {
public:
    /// Calls the handler on the main queue. Nothing comes for a recorded tree.
    Uevents(Runtime& runtime, const std::filesystem::path& root, std::initializer_list<const char*> subsystems,
        std::function<void()> handler);
    ~Uevents();
    Uevents(const Uevents&) = delete;
    Uevents& operator=(const Uevents&) = delete;

    bool isOpen() const { return monitor_ != nullptr; }

private:
    void receive();

    std::function<void()> handler_;
    udev* udev_ = nullptr;
    udev_monitor* monitor_ = nullptr;
    std::unique_ptr<Watch> watch_;
};

} // namespace meridal
