// SPDX-License-Identifier: Apache-2.0
#include "metrics/GroupBackfill.h"

#include "metrics/GroupFamilies.h"
#include "metrics/RecordPages.h"
#include "metrics/RecordedStretches.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int periodsOnPage = 500; ///< the daemon's own limit

using GroupIdentity = std::pair<std::string, std::optional<std::int64_t>>; ///< with whose it is

struct BackfilledGroup {
    GroupIdentity identity;
    std::string labels;
    bool isFolded = false; ///< into the others
};

/// A course in little memory: start and end of each period, and some of its figures; NaN: not told.
class CourseRows {
public:
    explicit CourseRows(std::size_t figures) : width_(figures + 2) { }

    void add(double start, double end, std::span<const double> figures)
    {
        cells_.insert(cells_.end(), {start, end});
        cells_.insert(cells_.end(), figures.begin(), figures.end());
    }
    std::size_t size() const { return cells_.size() / width_; }
    double start(std::size_t row) const { return cells_[row * width_]; }
    double end(std::size_t row) const { return cells_[row * width_ + 1]; }
    double figure(std::size_t row, std::size_t place) const { return cells_[row * width_ + 2 + place]; }

private:
    std::size_t width_;
    std::vector<double> cells_;
};

/// A counter stands still between periods that have the application, so that no rate is spread over a gap.
void writeCourse(
    BackfillSink& sink, const GroupFamily& family, const std::string& labels, const CourseRows& rows, std::size_t place)
{
    const bool isCounter = family.family.type == MetricType::Counter;
    double sum = 0;
    double latest = -std::numeric_limits<double>::infinity();
    for (std::size_t row = 0; row < rows.size(); ++row) {
        const double figure = rows.figure(row, place);
        if (std::isnan(figure) || rows.end(row) <= latest) {
            continue;
        }
        if (isCounter && rows.start(row) > latest) {
            sink.sample(rows.start(row), labels, sum);
        }
        latest = rows.end(row);
        sum += figure;
        sink.sample(latest, labels, isCounter ? sum : figure);
    }
}

/// The daemon's lists go from group to group, the text from family to family. So all courses are asked for the first family,
/// and again for as many of the others at once as fit into a bounded memory.
class GroupBackfill : public std::enable_shared_from_this<GroupBackfill> {
public:
    GroupBackfill(MetricsCaller caller, BackfillQuestion question, std::shared_ptr<BackfillSink> sink,
        std::function<void(Result<void>)> done)
        : caller_(std::move(caller)), question_(question), sink_(std::move(sink)), done_(std::move(done))
    {
    }

    void start()
    {
        findRecordedStretches(caller_, question_.from, question_.until,
            [self = shared_from_this()](Result<std::vector<RecordedStretch>> stretches) {
                if (!stretches) {
                    return self->done_(unexpected(stretches.error().code, stretches.error().message));
                }
                self->stretches_ = std::move(*stretches);
                self->stretches_.empty() ? self->done_({}) : self->rank();
            });
    }

private:
    static constexpr std::array<const char*, 5> rankings = {"cpu", "memory", "disk", "network", "energy"};
    static constexpr std::size_t mostCells = 1'500'000; ///< of courses that are held: 12 MB

    /// Who was largest in the whole time, by each of what applications are compared by.
    void rank()
    {
        if (ranked_.size() == rankings.size()) {
            choose();
            return beginPass(1);
        }
        ranked_.emplace_back();
        askRecordPages(
            caller_,
            {.method = method::groupsHistory,
                .list = "groups",
                .parameters = {{"by", rankings.at(ranked_.size() - 1)}, {"from", question_.from},
                    {"until", question_.until}, {"limit", periodsOnPage}}},
            [self = shared_from_this()](const Value& rows, const Value&) { self->note(rows); },
            [self = shared_from_this()](const Result<void>& result) { result ? self->rank() : self->done_(result); });
    }

    void note(const Value& rows)
    {
        for (const Value& row : rows) {
            const auto identity = text(row, "group");
            if (!identity) {
                continue;
            }
            const GroupIdentity known{*identity, integer(row, "user")};
            const std::string kind = text(row, "kind").value_or("");
            if (kind == "application") {
                ranked_.back().push_back(known);
            } else if (ranked_.size() == 1) {
                groups_.push_back({.identity = known,
                    .labels = groupLabels(kind, known.first, known.second),
                    .isFolded = kind == "other"});
            }
            if (ranked_.size() == 1) {
                names_.emplace(known, text(row, "name").value_or(*identity));
            }
        }
    }

    /// The largest by each ranking in turn; all others are asked for last, as they are told together.
    void choose()
    {
        std::vector<GroupIdentity> chosen;
        std::set<GroupIdentity> taken;
        std::size_t longest = 0;
        for (const auto& ranking : ranked_) {
            longest = std::max(longest, ranking.size());
        }
        for (std::size_t place = 0; place < longest; ++place) {
            for (const auto& ranking : ranked_) {
                if (place < ranking.size() && taken.insert(ranking[place]).second) {
                    chosen.push_back(ranking[place]);
                }
            }
        }
        for (std::size_t place = 0; place < chosen.size(); ++place) {
            const GroupIdentity& identity = chosen[place];
            const auto name = names_.find(identity);
            groups_.push_back({.identity = identity,
                .labels =
                    groupLabels(name != names_.end() ? name->second : identity.first, identity.first, identity.second),
                .isFolded = place >= question_.options.groups});
        }
        std::stable_partition(
            groups_.begin(), groups_.end(), [](const BackfilledGroup& each) { return !each.isFolded; });
        ranked_.clear();
        names_.clear();
    }

    void beginPass(std::size_t figures)
    {
        figures_ = figures;
        group_ = 0;
        rowsSeen_ = 0;
        sink_->family(groupFamilies.at(first_).family);
        beginGroup();
    }

    void beginGroup()
    {
        if (!sink_->isTaken()) {
            return done_({});
        }
        if (group_ == groups_.size()) {
            return endPass();
        }
        rows_.emplace(figures_);
        stretch_ = 0;
        askCourse();
    }

    void askCourse()
    {
        if (stretch_ == stretches_.size()) {
            if (!groups_[group_].isFolded) {
                finishCourse(groups_[group_].labels, std::move(*rows_));
            }
            ++group_;
            return beginGroup();
        }
        const RecordedStretch& stretch = stretches_[stretch_];
        const auto& [identity, user] = groups_[group_].identity;
        Value parameters = {{"group", identity}, {"step", stretch.step}, {"from", stretch.from},
            {"until", stretch.until}, {"limit", periodsOnPage}};
        put(parameters, "owner", user);
        askRecordPages(
            caller_, {.method = method::groupsHistory, .list = "periods", .parameters = std::move(parameters)},
            [self = shared_from_this()](const Value& rows, const Value&) { self->take(rows); },
            [self = shared_from_this()](const Result<void>& result) {
                if (!result) {
                    return self->done_(result);
                }
                ++self->stretch_;
                self->askCourse();
            });
    }

    void take(const Value& periods)
    {
        const RecordedStretch& stretch = stretches_[stretch_];
        std::array<double, recordedGroupFamilies> figures{};
        for (const Value& period : periods) {
            const double start = number(period, "time").value_or(0);
            if (start < stretch.from || start >= stretch.until) {
                continue; // the period that the stretch begins in
            }
            for (std::size_t place = 0; place < figures_; ++place) {
                const GroupFamily& family = groupFamilies.at(first_ + place);
                const double more = family.second ? number(period, family.second).value_or(0) : 0;
                figures.at(place) =
                    number(period, family.recorded).value_or(std::numeric_limits<double>::quiet_NaN()) + more;
            }
            const double end = std::min({start + stretch.seconds, stretch.until, question_.now});
            const auto told = std::span<const double>(figures).first(figures_);
            groups_[group_].isFolded ? fold(start, end, told) : rows_->add(start, end, told);
        }
    }

    void fold(double start, double end, std::span<const double> figures)
    {
        auto& [latest, sums] = others_.try_emplace(start, 0, std::vector<double>(figures_, std::nan(""))).first->second;
        latest = end;
        for (std::size_t place = 0; place < figures.size(); ++place) {
            if (!std::isnan(figures[place])) {
                sums[place] = std::isnan(sums[place]) ? figures[place] : sums[place] + figures[place];
            }
        }
    }

    void finishCourse(const std::string& labels, CourseRows rows)
    {
        rowsSeen_ += rows.size();
        writeCourse(*sink_, groupFamilies.at(first_), labels, rows, 0);
        if (figures_ > 1) {
            held_.emplace_back(labels, std::move(rows));
        }
    }

    void endPass()
    {
        CourseRows others(figures_);
        for (const auto& [start, period] : others_) {
            others.add(start, period.first, period.second);
        }
        others_.clear();
        finishCourse(groupLabels("other", "other", std::nullopt), std::move(others));
        for (std::size_t place = 1; place < figures_; ++place) {
            const GroupFamily& family = groupFamilies.at(first_ + place);
            sink_->family(family.family);
            for (const auto& [labels, rows] : held_) {
                writeCourse(*sink_, family, labels, rows, place);
            }
        }
        held_.clear();
        first_ += figures_;
        const std::size_t left = recordedGroupFamilies - first_;
        if (left == 0) {
            return done_({});
        }
        const std::size_t fitting = mostCells / std::max<std::size_t>(rowsSeen_, 1);
        beginPass(std::clamp<std::size_t>(fitting > 2 ? fitting - 2 : 1, 1, left));
    }

    const MetricsCaller caller_;
    const BackfillQuestion question_;
    const std::shared_ptr<BackfillSink> sink_;
    const std::function<void(Result<void>)> done_;
    std::vector<RecordedStretch> stretches_;
    std::vector<std::vector<GroupIdentity>> ranked_; ///< applications, by ranking
    std::map<GroupIdentity, std::string> names_;
    std::vector<BackfilledGroup> groups_; ///< those that are folded come last
    std::size_t first_ = 0;               ///< family of this pass
    std::size_t figures_ = 0;             ///< families of this pass
    std::size_t group_ = 0;
    std::size_t stretch_ = 0;
    std::size_t rowsSeen_ = 0;
    std::optional<CourseRows> rows_; ///< of the group that is asked for
    std::vector<std::pair<std::string, CourseRows>> held_;
    std::map<double, std::pair<double, std::vector<double>>> others_; ///< by start: the end, and the sums
};

} // namespace

void backfillGroups(const MetricsCaller& caller, const BackfillQuestion& question,
    const std::shared_ptr<BackfillSink>& sink, std::function<void(Result<void>)> done)
{
    std::make_shared<GroupBackfill>(caller, question, sink, std::move(done))->start();
}

} // namespace meridal
