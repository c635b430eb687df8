// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/DaemonClient.h"
#include "client/EventLoop.h"
#include "exporter/MetricsPage.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// The metrics that all scrapers share. The daemon is asked while somebody scrapes, at most once a second however many do, and
/// never twice at a time. It may come and go: each round of questions connects where there is no connection.
class SharedMetrics {
public:
    using Taken = std::function<void(const std::shared_ptr<MetricsPage>&)>;

    SharedMetrics(EventLoop& loop, std::string socketPath, const MetricsOptions& options);

    /// What was answered within the last second; null where nothing was.
    std::shared_ptr<MetricsPage> latest() const;
    /// Asks the daemon, or waits with those who have; `taken` is called once, within 5 s. A daemon that is away, or does not
    /// answer in that time, makes a page that says so.
    void ask(Taken taken);

private:
    void begin();
    void askAll();
    void conclude(MetricsSnapshot snapshot);
    void makeClient();

    EventLoop& loop_;
    const std::string socketPath_;
    const MetricsOptions options_;
    std::unique_ptr<DaemonClient> client_;
    bool isConnected_ = false;
    std::unique_ptr<Timer> patience_; ///< of the round of questions that is under way
    std::vector<Taken> waiting_;
    std::shared_ptr<MetricsPage> page_;
    double made_ = 0;          ///< when, of the loop's clock
    std::optional<bool> isUp_; ///< the daemon, at the latest round
};

} // namespace meridal
