// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricsSnapshot.h"

#include "wire/Methods.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int mostPages = 64; ///< of one list: no daemon that is well has more
constexpr int longestPage = 500;

struct MetricsQuestion {
    const char* method;
    Value MetricsSnapshot::*answer;
    Value parameters = Value::object();
    const char* list = nullptr; ///< of several pages, of which each says where the next begins
    const char* entry = "key";  ///< by this entry of its last row
};

std::vector<MetricsQuestion> metricsQuestions(const MetricsOptions& options)
{
    std::vector<MetricsQuestion> questions = {
        {.method = method::status, .answer = &MetricsSnapshot::status, .parameters = {{"passive", true}}},
        {.method = method::sensorsList,
            .answer = &MetricsSnapshot::sensors,
            .parameters = {{"passive", true}, {"limit", longestPage}},
            .list = "sensors"},
        {.method = method::disksList,
            .answer = &MetricsSnapshot::disks,
            .parameters = {{"attributes", true}},
            .list = "disks"},
        {.method = method::batteryState, .answer = &MetricsSnapshot::battery, .parameters = {{"passive", true}}},
        {.method = method::uptimeBoots,
            .answer = &MetricsSnapshot::boots,
            .parameters = {{"limit", 2}, {"passive", true}}},
        {.method = method::networkInterfaces,
            .answer = &MetricsSnapshot::interfaces,
            .parameters = {{"limit", longestPage}}},
        {.method = method::machineState, .answer = &MetricsSnapshot::machine, .parameters = {{"passive", true}}},
    };
    if (options.groups > 0) {
        questions.push_back({.method = method::groupsTotals,
            .answer = &MetricsSnapshot::groups,
            .parameters = {{"largest", std::min(options.groups, mostMetricGroups)}, {"passive", true}}});
    }
    return questions;
}

/// One round of questions. Held by the callbacks of the question that is out.
class MetricsRound : public std::enable_shared_from_this<MetricsRound> {
public:
    MetricsRound(MetricsCaller caller, const MetricsOptions& options, std::function<void(MetricsSnapshot)> done)
        : caller_(std::move(caller)), questions_(metricsQuestions(options)), done_(std::move(done))
    {
    }

    void ask()
    {
        if (next_ == questions_.size()) {
            return done_(std::move(snapshot_));
        }
        const MetricsQuestion& question = questions_[next_];
        const Value parameters = question.parameters.empty() ? Value::array() : Value::array({question.parameters});
        caller_(question.method, parameters,
            [self = shared_from_this()](Result<Value> result) { self->take(std::move(result)); });
    }

private:
    void take(Result<Value> result)
    {
        if (!result && result.error().code == ErrorCode::Unavailable) {
            return done_({}); // half of an answer would look like machines that lost their sensors
        }
        snapshot_.isUp = true;
        if (!result || !takePage(std::move(*result))) {
            ++next_;
            pages_ = 0;
        }
        ask();
    }

    /// Whether there are more of the same.
    bool takePage(Value page)
    {
        MetricsQuestion& question = questions_[next_];
        Value& answer = snapshot_.*question.answer;
        if (!question.list) {
            answer = std::move(page);
            return false;
        }
        const Value* rows = find(page, question.list);
        if (!rows || !rows->is_array()) {
            return false;
        }
        answer = answer.is_array() ? std::move(answer) : Value::array();
        answer.insert(answer.end(), rows->begin(), rows->end());
        const Value* more = find(page, "more");
        const Value* last = rows->empty() ? nullptr : find(rows->back(), question.entry);
        if (!more || *more != true || !last || ++pages_ == mostPages) {
            return false;
        }
        question.parameters["after"] = *last;
        return true;
    }

    const MetricsCaller caller_;
    std::vector<MetricsQuestion> questions_;
    const std::function<void(MetricsSnapshot)> done_;
    MetricsSnapshot snapshot_;
    std::size_t next_ = 0;
    int pages_ = 0; ///< of the question that is out
};

} // namespace

void askMetrics(const MetricsCaller& caller, const MetricsOptions& options, std::function<void(MetricsSnapshot)> done)
{
    std::make_shared<MetricsRound>(caller, options, std::move(done))->ask();
}

} // namespace meridal
