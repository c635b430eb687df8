// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkStatistics.h"
#include "platform/host/PacketTap.h"
#include "platform/host/ProcessConnections.h"
#include "platform/host/TrafficCounters.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A tap whose frames a test hands over.
class FakePacketTap final : public PacketTap {
public:
    struct Running {
        std::shared_ptr<Sink> sink;
        std::string interface; ///< empty: all of them
        CaptureStatistics statistics;
    };

    Result<std::unique_ptr<Capture>> captureAll(std::shared_ptr<Sink> sink) override
    {
        return begin({}, std::move(sink));
    }
    Result<std::unique_ptr<Capture>> captureInterface(const std::string& name, std::shared_ptr<Sink> sink) override
    {
        return begin(name, std::move(sink));
    }
    bool followsInterfaces() const override { return follows; }
    std::unique_ptr<SocketOwners> makeOwners() override { return owners ? owners() : nullptr; }

    /// Hands a batch to every capture of this interface; of none: to those of all.
    void deliver(const std::vector<CapturedFrame>& frames, const std::string& interface = {})
    {
        for (const auto& capture : running) {
            if (capture->interface == interface) {
                for (const CapturedFrame& frame : frames) {
                    capture->sink->frame(frame);
                }
                capture->statistics.frames += frames.size();
                capture->sink->endBatch();
            }
        }
    }

    std::vector<std::shared_ptr<Running>> running;
    std::function<std::unique_ptr<SocketOwners>()> owners;
    std::string refusal; ///< why a capture cannot begin; empty: it can
    bool follows = false;
    int begun = 0;
    int refused = 0;

private:
    struct Ending final : Capture {
        Ending(FakePacketTap& tap, std::shared_ptr<Running> running) : tap_(tap), running_(std::move(running)) { }
        ~Ending() override { std::erase(tap_.running, running_); }
        CaptureStatistics statistics() const override { return running_->statistics; }
        FakePacketTap& tap_;
        std::shared_ptr<Running> running_;
    };

    Result<std::unique_ptr<Capture>> begin(const std::string& name, std::shared_ptr<Sink> sink)
    {
        if (!refusal.empty()) {
            ++refused;
            return unexpected(ErrorCode::NotPermitted, refusal);
        }
        ++begun;
        running.push_back(std::make_shared<Running>(Running{std::move(sink), name, {}}));
        return std::unique_ptr<Capture>(std::make_unique<Ending>(*this, running.back()));
    }
};

/// Counters that tell what a test has written. By itself a system without any.
class FakeTrafficCounters final : public TrafficCounters {
public:
    Result<std::unique_ptr<Counting>> start() override
    {
        if (refusal) {
            return unexpected(refusal->code, refusal->message);
        }
        ++begun;
        return std::unique_ptr<Counting>(std::make_unique<Fake>(*this));
    }

    std::optional<Error> refusal = Error{ErrorCode::NotFound, "no such thing"};
    TrafficReading next; ///< gone once it has been read
    int begun = 0;
    int running = 0;

private:
    struct Fake final : Counting {
        explicit Fake(FakeTrafficCounters& counters) : counters_(counters) { ++counters_.running; }
        ~Fake() override { --counters_.running; }
        const TrafficReading& read() override { return last_ = std::exchange(counters_.next, {}); }
        std::string method() const override { return "fake"; }
        FakeTrafficCounters& counters_;
        TrafficReading last_;
    };
};

/// Counts of connections as a test has written them.
class FakeNetworkStatistics final : public NetworkStatistics {
public:
    Result<std::unique_ptr<Counting>> start() override
    {
        ++running;
        return std::unique_ptr<Counting>(std::make_unique<Fake>(*this));
    }
    bool knowsEveryConnection() const override { return isWhole; }

    bool isWhole = false;
    std::vector<CountedConnection> rows; ///< those that have ended are gone once they have been read
    int running = 0;

private:
    struct Fake final : Counting {
        explicit Fake(FakeNetworkStatistics& kernel) : kernel_(kernel) { }
        ~Fake() override { --kernel_.running; }
        std::span<const CountedConnection> read() override
        {
            read_ = kernel_.rows;
            std::erase_if(kernel_.rows, [](const CountedConnection& row) { return row.hasEnded; });
            return read_;
        }
        FakeNetworkStatistics& kernel_;
        std::vector<CountedConnection> read_;
    };
};

class FakeProcessConnections final : public ProcessConnections {
public:
    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t>) override
    {
        ++reads;
        return rows;
    }
    std::vector<ConnectionRecord> rows;
    int reads = 0;
};

} // namespace meridal::test
