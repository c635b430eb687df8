// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/applications/ApplicationRecorder.h"
#include "database/HistoryDatabaseController.h"
#include "tests/database/DatabaseFixture.h"

#include <fmt/format.h>

#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// Totals as the daemon's passes make them: they grow, start at 0 with the daemon, and close.
class GrowingTotals {
public:
    GrowingTotals() { startOver(); }

    void startOver()
    {
        groups_.clear();
        next_ = 0;
        add("other").kind = GroupKind::Other;
        add("kernel").kind = GroupKind::Kernel;
    }
    GroupTotals& group(const std::string& identity, std::optional<std::uint32_t> owner = 1000)
    {
        for (GroupTotals& each : groups_) {
            if (each.identity == identity && (each.kind != GroupKind::Application || each.owner == owner)) {
                return each;
            }
        }
        GroupTotals& made = add(identity);
        made.owner = owner;
        return made;
    }
    /// What the accumulator does with a group too many.
    void fold(const std::string& identity)
    {
        groups_.front().sums += group(identity).sums;
        std::erase_if(groups_, [&](const GroupTotals& each) { return each.identity == identity; });
    }
    std::vector<GroupTotals>& all() { return groups_; }

private:
    GroupTotals& add(const std::string& identity)
    {
        GroupTotals& made = groups_.emplace_back();
        made.number = next_++;
        made.identity = made.name = identity;
        return made;
    }
    std::vector<GroupTotals> groups_;
    std::uint32_t next_ = 0;
};

/// A recorder on virtual time and a real file, and what has been given it.
class ApplicationTest : public testing::Test {
protected:
    static constexpr double hour = 3600;
    static constexpr double day = 24 * hour;

    explicit ApplicationTest(double start = 1'700'006'400) : machine_() // 00:00 UTC
    {
        machine_.context.paths.support = folder_.root();
        machine_.runtime.stepWallClock(start - now());
        startDaemon();
    }
    ~ApplicationTest() override { stopDaemon(false); }

    void startDaemon(const HistoryDatabaseItem::Limits& limits = {})
    {
        databases_ = std::make_unique<HistoryDatabaseController>(machine_.context, limits);
        machine_.context.databases = databases_.get();
        recorder_ = std::make_unique<ApplicationRecorder>(machine_.context);
        totals_.startOver();
        record();
    }
    /// In good order, or as a kill does.
    void stopDaemon(bool killed)
    {
        if (recorder_ && !killed) {
            recorder_->runDatabaseQueue();
            databases_->commitAllSync();
        }
        recorder_.reset();
        if (databases_) {
            for (const auto& [name, figures] : databases_->statistics()) {
                EXPECT_EQ(figures.statementsFailed, 0U) << name;
            }
        }
        databases_.reset();
        machine_.context.databases = nullptr;
    }
    void restart(bool killed = false)
    {
        stopDaemon(killed);
        startDaemon();
    }
    double now() const { return machine_.runtime.wallTime(); }
    void record()
    {
        recorder_->record(now(), totals_.all());
        recorder_->updateHistory();
        machine_.runtime.runDue();
    }
    /// Passes every so many seconds, each after something has been used.
    void pass(
        double seconds, double interval = 10, const std::function<void()>& use = [] {})
    {
        for (const double end = now() + seconds - interval / 2; now() < end;) {
            machine_.runtime.advance(interval);
            use();
            record();
        }
    }
    void use(const std::string& identity, double cpuSeconds, std::uint64_t bytes = 0)
    {
        GroupSums sums;
        sums.cpuUserSeconds = cpuSeconds;
        sums.bytesReceived = bytes;
        totals_.group(identity).sums += sums;
        given_ += static_cast<std::int64_t>(std::llround(cpuSeconds * 1000));
    }
    /// One figure of the file, after all that waits has been written.
    std::string value(const std::string& sql)
    {
        recorder_->runDatabaseQueue();
        machine_.runtime.runDue();
        return OtherProgram(file()).value(sql);
    }
    std::int64_t sumOf(RecordStep step, const std::string& column = "cpuuser")
    {
        return std::stoll(value(fmt::format("SELECT coalesce(sum({}), 0) FROM {}", column, traitsOf(step).table)));
    }
    /// Every table holds so many milliseconds, and each period what its minutes hold.
    void expectClosed(std::int64_t milliseconds)
    {
        for (const RecordStep step : recordSteps) {
            EXPECT_EQ(sumOf(step), milliseconds) << traitsOf(step).name;
        }
        for (const RecordStep step : {RecordStep::Quarter, RecordStep::Hour}) {
            const auto open =
                value(fmt::format("WITH fine AS (SELECT start - start % {0} AS period, sum(cpuuser) AS cpu FROM "
                                  "application_minutes GROUP BY 1), coarse AS (SELECT start AS period, "
                                  "sum(cpuuser) AS cpu FROM {1} GROUP BY 1) SELECT count(*) FROM fine LEFT "
                                  "JOIN coarse USING (period) WHERE fine.cpu IS NOT coarse.cpu",
                    static_cast<int>(traitsOf(step).seconds), traitsOf(step).table));
            EXPECT_EQ(open, "0") << traitsOf(step).name;
        }
    }
    template <typename Answer, typename Ask>
    Answer answered(Ask ask)
    {
        std::optional<Answer> answer;
        ask([&answer](const std::optional<Answer>& reply) { answer = reply; });
        machine_.runtime.runDue();
        EXPECT_TRUE(answer);
        return answer.value_or(Answer());
    }
    RecordedTotals totals(const TotalsQuestion& question)
    {
        return answered<RecordedTotals>([&](auto reply) { recorder_->readTotals(question, reply); });
    }
    RecordedCourse course(const CourseQuestion& question)
    {
        return answered<RecordedCourse>([&](auto reply) { recorder_->readCourse(question, reply); });
    }
    RecordedMoment moment(double time, std::optional<std::uint32_t> viewer = {})
    {
        return answered<RecordedMoment>([&](auto reply) { recorder_->readMoment(time, viewer, reply); });
    }
    std::filesystem::path file() const { return folder_.root() / "applications.db"; }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    std::unique_ptr<HistoryDatabaseController> databases_;
    std::unique_ptr<ApplicationRecorder> recorder_;
    GrowingTotals totals_;
    std::int64_t given_ = 0; ///< ms of CPU time
};

} // namespace meridal::test
