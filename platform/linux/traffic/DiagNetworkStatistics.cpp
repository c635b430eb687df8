// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/LinuxTraffic.h"

#include "base/Runtime.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <netinet/in.h>

#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

namespace {

class DiagCounting final : public NetworkStatistics::Counting {
public:
    DiagCounting(Runtime& runtime, const std::filesystem::path& root) : runtime_(runtime), inodes_(root) { }

    /// The first reading. False when the kernel does not show its sockets.
    bool begin() { return readSockets(false); }

    std::span<const CountedConnection> read() override
    {
        rows_.clear();
        ends_.read([this](const DiagSocket& socket) { endSocket(socket); });
        readSockets(true);
        findOwners();
        for (const auto& entry : sources_) {
            rows_.push_back(entry.second.connection);
        }
        return rows_;
    }

private:
    struct Source {
        CountedConnection connection;
        std::uint64_t inode = 0;
        std::uint32_t reading = 0; ///< the latest one that had it
    };

    bool readSockets(bool areNew)
    {
        ++reading_;
        const double now = runtime_.monotonicTime();
        const auto take = [&](const DiagSocket& socket) { takeSocket(socket, now, areNew); };
        const bool hasAllOf4 = diag_.dump(IPPROTO_TCP, false, SocketDiag::Counts::Yes, take);
        const bool hasAllOf6 = diag_.dump(IPPROTO_TCP, true, SocketDiag::Counts::Yes, take);
        if (hasAllOf4 && hasAllOf6) {
            std::erase_if(sources_, [this](const auto& entry) {
                const bool isGone = entry.second.reading != reading_;
                if (isGone) {
                    tellEnd(entry.second.connection);
                }
                return isGone;
            });
        }
        return hasAllOf4;
    }

    void takeSocket(const DiagSocket& socket, double now, bool isNew)
    {
        const bool hasCounts = socket.bytesReceived && socket.bytesSent;
        if (!hasCounts || (socket.inode == 0 && !sources_.contains(socket.cookie))) {
            return; // nobody's yet, or nobody's any more; one that is known goes on until its last bytes are out
        }
        const auto [entry, isFirst] = sources_.try_emplace(socket.cookie);
        Source& source = entry->second;
        if (isFirst) {
            source.connection = {.id = socket.cookie, .protocol = IPPROTO_TCP, .isNew = isNew};
        }
        source.connection.localPort = socket.flow.localPort;
        source.connection.bytesReceived = *socket.bytesReceived;
        source.connection.bytesSent = *socket.bytesSent;
        source.connection.countedAt = now;
        source.inode = socket.inode == 0 ? source.inode : socket.inode;
        source.reading = reading_;
    }

    /// The last word of a connection: what it carried since it was last read.
    void endSocket(const DiagSocket& socket)
    {
        const auto entry = sources_.find(socket.cookie);
        if (entry == sources_.end()) {
            return; // it came and went between two readings, and whose it was is not to be had
        }
        CountedConnection& connection = entry->second.connection;
        connection.bytesReceived = socket.bytesReceived.value_or(connection.bytesReceived);
        connection.bytesSent = socket.bytesSent.value_or(connection.bytesSent);
        connection.countedAt = runtime_.monotonicTime();
        tellEnd(connection);
        sources_.erase(entry);
    }

    void tellEnd(const CountedConnection& connection)
    {
        rows_.push_back(connection);
        rows_.back().hasEnded = true;
    }

    void findOwners()
    {
        bool hasSearched = false; // one search a reading
        for (auto& [id, source] : sources_) {
            if (source.connection.pid) {
                continue;
            }
            SocketInodes::Answer owner = inodes_.find(source.inode);
            if (owner.state == SocketInodes::State::Wanted && !std::exchange(hasSearched, true)) {
                inodes_.search();
                owner = inodes_.find(source.inode);
            }
            if (owner.state == SocketInodes::State::Found) {
                source.connection.pid = owner.pid;
            }
        }
    }

    Runtime& runtime_;
    SocketDiag diag_;
    SocketEnds ends_;
    SocketInodes inodes_;
    std::unordered_map<std::uint64_t, Source> sources_; ///< by cookie
    std::vector<CountedConnection> rows_;
    std::uint32_t reading_ = 0;
};

/// Sources are sockets, by their cookie, and counts are tcp_info's bytes. Linux counts no bytes of UDP sockets.
class DiagNetworkStatistics final : public NetworkStatistics {
public:
    DiagNetworkStatistics(Runtime& runtime, std::filesystem::path root) : runtime_(runtime), root_(std::move(root)) { }

    Result<std::unique_ptr<Counting>> start() override
    {
        auto counting = std::make_unique<DiagCounting>(runtime_, root_);
        if (!counting->begin()) {
            return unexpected(ErrorCode::Unavailable, "the kernel does not show its TCP sockets (sock_diag)");
        }
        return std::unique_ptr<Counting>(std::move(counting));
    }

private:
    Runtime& runtime_;
    std::filesystem::path root_;
};

} // namespace

std::unique_ptr<NetworkStatistics> makeDiagNetworkStatistics(Runtime& runtime, std::filesystem::path root)
{
    return std::make_unique<DiagNetworkStatistics>(runtime, std::move(root));
}

} // namespace meridal
