#include "platform/linux/traffic/DiagNetworkStatistics.h"

#include "base/Runtime.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <netinet/in.h>

#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr std::uint32_t tcpProvider = 3; ///< sockets of programs
/// s for which one reading of all sockets answers: as long as one round of questions takes.
constexpr double readingLifetime = 0.25;
/// s; how often sockets are read when nobody asks, so that new ones become known.
constexpr double idleInterval = 2;

} // namespace

class DiagNetworkStatistics::TcpChannel final : public NetworkStatistics::Channel {
public:
    TcpChannel(Runtime& runtime, const std::filesystem::path& root, Received received)
        : runtime_(runtime), inodes_(root), received_(std::move(received))
    {
    }

    bool write(std::span<const std::uint8_t> request) override
    {
        const auto parsed = parseStatisticsRequest(format, request);
        if (!parsed) {
            return false;
        }
        if (parsed->type == StatisticsType::AddAllSources) {
            subscribe(parsed->provider);
            return true;
        }
        refresh(readingLifetime);
        const auto source = sources_.find(parsed->source);
        if (source == sources_.end()) {
            return true; // it has just gone, which was told
        }
        message_.clear();
        if (parsed->type == StatisticsType::QuerySource) {
            encodeSourceCounts(format, parsed->context, parsed->source, source->second.counts, message_);
        } else {
            encodeSourceDescription(format, parsed->context, parsed->source, describe(source->second), message_);
        }
        received_(message_);
        return true;
    }

private:
    struct Source {
        SourceCounts counts;
        std::uint64_t inode = 0;
        std::uint16_t localPort = 0;
        std::uint16_t foreignPort = 0;
        std::uint32_t interface = 0;
        std::uint32_t reading = 0; ///< the latest one that had it
    };

    void subscribe(std::uint32_t provider)
    {
        if (provider != tcpProvider || idle_) {
            return;
        }
        // Not at once: who opens the channel is still busy with that.
        idle_ = runtime_.startTimer(runtime_.mainQueue(),
            {.first = 0, .interval = idleInterval, .leeway = idleInterval / 4}, [this] { refresh(idleInterval / 2); });
    }

    SourceDescription describe(const Source& source)
    {
        SourceDescription description{.provider = tcpProvider,
            .pid = -1,
            .interface = source.interface,
            .localPort = source.localPort,
            .foreignPort = source.foreignPort};
        const SocketInodes::Answer owner = inodes_.find(source.inode);
        if (owner.state == SocketInodes::State::Found) {
            description.pid = owner.pid;
        } else if (owner.state == SocketInodes::State::Wanted && !hasSearched_) {
            hasSearched_ = true; // one search a reading
            inodes_.search();
            const SocketInodes::Answer found = inodes_.find(source.inode);
            description.pid = found.state == SocketInodes::State::Found ? found.pid : -1;
        }
        return description;
    }

    /// Reads all sockets, unless that was done within so many seconds, and tells what came and went.
    void refresh(double lifetime)
    {
        const double time = runtime_.monotonicTime();
        if (reading_ > 0 && time - readAt_ < lifetime) {
            return;
        }
        readAt_ = time;
        ++reading_;
        hasSearched_ = false;
        news_.clear();
        const auto take = [this](const DiagSocket& socket) { takeSocket(socket); };
        ends_.read([this](const DiagSocket& socket) { endSocket(socket); });
        const bool hasAllOf4 = diag_.dump(IPPROTO_TCP, false, SocketDiag::Counts::Yes, take);
        const bool hasAllOf6 = diag_.dump(IPPROTO_TCP, true, SocketDiag::Counts::Yes, take);
        if (hasAllOf4 && hasAllOf6) {
            std::erase_if(sources_, [this](const auto& entry) {
                if (entry.second.reading == reading_) {
                    return false;
                }
                encodeSourceRemoved(format, entry.first, news_);
                return true;
            });
        }
        tellNews();
    }

    /// The last word of a connection: what it carried since it was last read.
    void endSocket(const DiagSocket& socket)
    {
        const auto source = sources_.find(socket.cookie);
        if (source == sources_.end()) {
            return; // it came and went between two readings, and whose it was is not to be had
        }
        encodeSourceCounts(format, 0, socket.cookie, socket.counts.value_or(source->second.counts), news_);
        encodeSourceRemoved(format, socket.cookie, news_);
        sources_.erase(source);
    }

    void takeSocket(const DiagSocket& socket)
    {
        if (!socket.counts || (socket.inode == 0 && !sources_.contains(socket.cookie))) {
            return; // nobody's yet, or nobody's any more; one that is known goes on until its last bytes are out
        }
        const auto [entry, isNew] = sources_.try_emplace(socket.cookie);
        Source& source = entry->second;
        source.counts = *socket.counts;
        source.inode = socket.inode == 0 ? source.inode : socket.inode;
        source.localPort = socket.flow.localPort;
        source.foreignPort = socket.flow.foreignPort;
        source.interface = socket.flow.interface;
        source.reading = reading_;
        if (isNew) {
            encodeSourceAdded(format, socket.cookie, tcpProvider, news_);
        }
    }

    void tellNews()
    {
        if (!news_.empty()) {
            const std::vector<std::uint8_t> news = std::move(news_); // what it sets off may lead here again
            news_ = {};
            received_(news);
        }
    }

    Runtime& runtime_;
    SocketDiag diag_;
    SocketEnds ends_;
    SocketInodes inodes_;
    Received received_;
    std::unordered_map<std::uint64_t, Source> sources_; ///< by cookie
    std::vector<std::uint8_t> message_;                 ///< kept for its memory
    std::vector<std::uint8_t> news_;
    std::unique_ptr<Timer> idle_;
    double readAt_ = 0;
    std::uint32_t reading_ = 0;
    bool hasSearched_ = false;
};

DiagNetworkStatistics::DiagNetworkStatistics(Runtime& runtime, std::filesystem::path root)
    : runtime_(runtime), root_(std::move(root))
{
}

Result<std::unique_ptr<NetworkStatistics::Channel>> DiagNetworkStatistics::open(Received received)
{
    SocketDiag probe;
    if (!probe.dump(IPPROTO_TCP, false, SocketDiag::Counts::No, [](const DiagSocket&) {})) {
        return unexpected(ErrorCode::Unavailable, "the kernel does not show its TCP sockets (sock_diag)");
    }
    return std::unique_ptr<Channel>(std::make_unique<TcpChannel>(runtime_, root_, std::move(received)));
}

} // namespace meridal
