// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/linux/kernel/SystemBus.h"
#include "tests/linux/Child.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <memory>
#include <poll.h>
#include <string>
#include <systemd/sd-bus.h>

namespace meridal::test {

/// A bus of the test's own, and virtual time whose descriptors are real.
struct BusTest : ::testing::Test {
    void startDaemon()
    {
        daemon = std::make_unique<Child>([&](const Child::Pipes& pipes) {
            ::dup2(pipes.answers, 3);
            ::execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                "--print-address=3", ("--address=" + address).c_str(), nullptr);
        });
        hasDaemon = daemon->answer().has_value(); // printed once it listens
    }
    void SetUp() override
    {
        startDaemon();
        if (!hasDaemon) {
            GTEST_SKIP() << "no dbus-daemon installed";
        }
        bus = std::make_shared<SystemBus>(runtime, limitations, address);
    }
    bool isReady() const { return bus->handle() && sd_bus_is_ready(bus->handle()) > 0; }
    /// Work that other ends of the bus have in this process.
    virtual void serveOthers() { }
    /// Serves the connection until the condition holds; false after about 5 s without.
    template <typename Condition>
    bool serveUntil(const Condition& condition)
    {
        for (int i = 0; i < 500 && !condition(); ++i) {
            runtime.runDue();
            serveOthers();
            if (bus->handle()) {
                const int descriptor = sd_bus_get_fd(bus->handle());
                pollfd wait{.fd = descriptor, .events = POLLIN, .revents = 0};
                if (::poll(&wait, 1, 10) > 0) {
                    runtime.makeReadable(descriptor);
                }
            }
        }
        return condition();
    }

    TemporaryTree tree;
    std::string address = "unix:path=" + (tree.root() / "bus").string();
    std::unique_ptr<Child> daemon;
    bool hasDaemon = false;
    VirtualRuntime runtime;
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::shared_ptr<SystemBus> bus;
};

} // namespace meridal::test
