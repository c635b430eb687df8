// SPDX-License-Identifier: Apache-2.0
#include "metrics/Backfill.h"

#include "metrics/BackfillSink.h"
#include "metrics/GroupBackfill.h"
#include "metrics/RecordPages.h"
#include "metrics/RecordedFamilies.h"
#include "metrics/RecordedSamples.h"
#include "wire/Methods.h"

#include <memory>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int seriesOnBackfillPage = 500;

/// One run, held by the callbacks of the question that is out.
class BackfillRun : public std::enable_shared_from_this<BackfillRun> {
public:
    BackfillRun(
        MetricsCaller caller, BackfillQuestion question, BackfillPrinter print, std::function<void(Result<void>)> done)
        : caller_(std::move(caller))
        , question_(question)
        , sink_(std::make_shared<BackfillSink>(std::move(print)))
        , done_(std::move(done))
    {
    }

    void start()
    {
        MetricsOptions options = question_.options;
        options.groups = 0;
        askMetrics(caller_, options, [self = shared_from_this()](MetricsSnapshot now) {
            if (!now.isUp) {
                return self->done_(unexpected(ErrorCode::Unavailable, "the daemon left before it had answered"));
            }
            self->now_ = std::move(now);
            self->listSeries();
        });
    }

private:
    void listSeries()
    {
        askRecordPages(
            caller_,
            {.method = method::historySeries, .list = "series", .parameters = {{"limit", seriesOnBackfillPage}}},
            [self = shared_from_this()](const Value& rows, const Value&) {
                self->series_.insert(self->series_.end(), rows.begin(), rows.end());
            },
            [self = shared_from_this()](const Result<void>& result) {
                if (!result) {
                    return self->done_(result);
                }
                self->families_ = recordedFamilies(self->series_, self->now_, self->question_.options.all);
                self->series_.clear();
                self->writeFamilies();
            });
    }

    /// Figures of one series mostly come after each other, so that it is read once.
    void writeFamilies()
    {
        for (; family_ < families_.size(); ++family_, figure_ = 0) {
            const RecordedFamily& family = families_[family_];
            for (; figure_ < family.figures.size(); ++figure_) {
                const BackfilledFigure& figure = family.figures[figure_];
                if (samples_.series() != figure.series) {
                    return readSeries(figure.series);
                }
                if (figure_ == 0) {
                    sink_->family(family.family);
                }
                samples_.forEach(figure.column,
                    [&](double time, double value) { sink_->sample(time, figure.labels, value / figure.divisor); });
                if (!sink_->isTaken()) {
                    return done_({});
                }
            }
        }
        writeGroups();
    }

    void readSeries(const std::string& series)
    {
        samples_ = {};
        readRecordedSamples(caller_, series, question_.from, question_.until, question_.now,
            [self = shared_from_this()](Result<RecordedSamples> samples) {
                if (!samples) {
                    return self->done_(unexpected(samples.error().code, samples.error().message));
                }
                self->samples_ = std::move(*samples);
                self->writeFamilies();
            });
    }

    void writeGroups()
    {
        samples_ = {};
        if (question_.options.groups == 0) {
            return finish({});
        }
        backfillGroups(caller_, question_, sink_,
            [self = shared_from_this()](const Result<void>& result) { self->finish(result); });
    }

    void finish(const Result<void>& result)
    {
        if (result) {
            sink_->finish();
        }
        done_(result);
    }

    const MetricsCaller caller_;
    const BackfillQuestion question_;
    const std::shared_ptr<BackfillSink> sink_;
    const std::function<void(Result<void>)> done_;
    MetricsSnapshot now_;
    Value series_ = Value::array();
    std::vector<RecordedFamily> families_;
    std::size_t family_ = 0;
    std::size_t figure_ = 0;
    RecordedSamples samples_;
};

} // namespace

void askBackfill(const MetricsCaller& caller, const BackfillQuestion& question, BackfillPrinter print,
    std::function<void(Result<void>)> done)
{
    std::make_shared<BackfillRun>(caller, question, std::move(print), std::move(done))->start();
}

} // namespace meridal
