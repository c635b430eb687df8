// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/RegistryText.h"

#include <IOKit/IOKitLib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What the port's reference leads to.
struct IONotificationPort {
    bool hasQueue = false;
    int registrations = 0; ///< for messages of the power domain
};

namespace meridal::test {

/// A driver's user client, as IOConnectCallStructMethod has it: what it answers to a selector and a record.
using StructMethod = std::function<kern_return_t(
    std::uint32_t selector, std::span<const std::uint8_t> input, std::span<std::uint8_t> output)>;

/// What a SMART plug-in of a disk answers.
struct SimulatedSMART {
    kern_return_t refusal = KERN_SUCCESS;                           ///< what making the plug-in ends with
    bool hasInterface = true;                                       ///< whether it has the one that was asked for
    kern_return_t commandResult = KERN_SUCCESS;                     ///< of each command
    bool exceeded = false;                                          ///< ATA: a threshold is
    std::array<std::uint8_t, 512> data{}, thresholds{}, identify{}; ///< NVMe: the health log is `data`
    std::vector<std::string> commands;                              ///< those that change something
};

/// The I/O registry of the simulated Mac, and who wants to hear of it.
class Registry {
public:
    static Registry& current();

    /// Adds entries, in ioreg's words, below that of a name (the root without), and tells who waits for such.
    void plug(std::string_view text, std::string_view below = "");
    /// Takes an entry and all below it away, and tells so.
    void unplug(std::string_view name);
    RegistryNode& at(std::string_view name);

    std::map<std::string, StructMethod> clients; ///< user clients, by the service's name
    std::map<std::string, SimulatedSMART> disks; ///< by the service's name

    // What the calls are made of.
    using NodePtr = std::shared_ptr<RegistryNode>;
    struct Handle {
        NodePtr node{};                 ///< an entry
        std::vector<NodePtr> pending{}; ///< an iterator's: what it has not yet given, the next one last
        bool isIterator = false;
        std::string client{}; ///< a connection's: the name of its service
    };
    struct Notification {
        IONotificationPortRef port;
        std::string event;
        CFTypeRef matching;
        IOServiceMatchingCallback callback;
        void* context;
        io_iterator_t iterator;
        bool isArmed = false; ///< since its iterator gave the last one
    };

    bool has(std::string_view name) const;
    NodePtr find(std::string_view name) const; ///< throws where there is none
    io_object_t open(Handle handle, const std::string& what);
    Handle* handleAt(io_object_t object);
    void close(io_object_t object, const std::string& what);
    std::vector<NodePtr> matching(CFTypeRef dictionary) const;
    io_iterator_t iterate(std::vector<NodePtr> nodes);
    void drained(io_iterator_t iterator);
    void removeNotifications(IONotificationPortRef port);
    /// Forgets all of it. Ports that are still there stay.
    void reset();

    std::vector<Notification> notifications;

private:
    void tell(const std::string& event, const NodePtr& node);
    void publish(const NodePtr& node);
    NodePtr root_ = std::make_shared<RegistryNode>();
    std::map<io_object_t, std::pair<Handle, std::string>> handles_;
    io_object_t lastHandle_ = 0x1003;
    std::uint64_t lastIdentifier_ = 0x100000100;
};

bool matches(const RegistryNode& node, CFTypeRef dictionary);

} // namespace meridal::test
