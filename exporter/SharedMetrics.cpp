// SPDX-License-Identifier: Apache-2.0
#include "exporter/SharedMetrics.h"

#include <fmt/format.h>

#include <cstdio>
#include <utility>

namespace meridal {

namespace {

constexpr double sharedFor = 1;     // s
constexpr double longestRound = 5;  // s; scrapers wait for 10 by default
constexpr double longestAnswer = 9; // s: the round ends first

} // namespace

SharedMetrics::SharedMetrics(EventLoop& loop, std::string socketPath, const MetricsOptions& options)
    : loop_(loop), socketPath_(std::move(socketPath)), options_(options)
{
    makeClient();
}

void SharedMetrics::makeClient()
{
    isConnected_ = false;
    client_ = std::make_unique<DaemonClient>(loop_, socketPath_);
    client_->setTimeout(longestAnswer);
    client_->setEvents(
        {.connected = {}, .disconnected = [this](const Error&) { isConnected_ = false; }, .envelope = {}});
}

std::shared_ptr<MetricsPage> SharedMetrics::latest() const
{
    return page_ && loop_.now() - made_ < sharedFor ? page_ : nullptr;
}

void SharedMetrics::ask(Taken taken)
{
    waiting_.push_back(std::move(taken));
    if (waiting_.size() == 1) {
        begin();
    }
}

void SharedMetrics::begin()
{
    // A daemon that hangs may answer yet: by then nobody listens, and the next round begins on a connection of its own.
    patience_ = loop_.after(longestRound, [this] {
        makeClient();
        conclude({});
    });
    if (isConnected_) {
        askAll();
        return;
    }
    client_->connect([this](const Result<void>& outcome) {
        isConnected_ = outcome.has_value();
        if (isConnected_) {
            askAll();
        } else {
            conclude({});
        }
    });
}

void SharedMetrics::askAll()
{
    const MetricsCaller caller = [this](const std::string& method, const Value& parameters, auto reply) {
        client_->call(method, parameters, std::move(reply));
    };
    askMetrics(caller, options_, [this](MetricsSnapshot snapshot) { conclude(std::move(snapshot)); });
}

void SharedMetrics::conclude(MetricsSnapshot snapshot)
{
    patience_.reset();
    if (isUp_ != snapshot.isUp) {
        isUp_ = snapshot.isUp;
        fmt::print(stderr, "{} {}\n", *isUp_ ? "meridald answers at" : "No answer from meridald at", socketPath_);
    }
    page_ = std::make_shared<MetricsPage>(std::move(snapshot), options_);
    made_ = loop_.now();
    const auto waiting = std::exchange(waiting_, {});
    for (const Taken& taken : waiting) {
        taken(page_);
    }
}

} // namespace meridal
