// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CheckQuery.h"

#include "client/screen/Format.h"
#include "client/views/Answers.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace meridal {

namespace {

constexpr int mostCheckPages = 64;

/// One round of questions. Held by the callback of the question that is out.
class CheckRound : public std::enable_shared_from_this<CheckRound> {
public:
    CheckRound(Session& session, std::vector<std::string> topics, CheckReading reading,
        std::function<void(CheckReport, const Value&)> done)
        : session_(session), topics_(std::move(topics)), reading_(reading), done_(std::move(done))
    {
    }

    void ask()
    {
        askOne(method::status, Value::array(), [self = shared_from_this()](Value status) {
            self->sources_.status = std::move(status);
            self->askSensors();
        });
    }

private:
    using Next = void (CheckRound::*)();

    bool wants(std::string_view topic) const
    {
        return std::find(topics_.begin(), topics_.end(), topic) != topics_.end();
    }
    bool isRecorded(std::string_view what) const
    {
        const Value* configuration = find(sources_.status, "configuration");
        const Value* record = configuration ? find(*configuration, "record") : nullptr;
        const Value* isOn = record ? find(*record, what) : nullptr;
        return !isOn || *isOn != false;
    }

    void askSensors()
    {
        if (!wants("sensors") && !wants("fans")) {
            return askDisks();
        }
        // What is not recorded is read for those alone who ask.
        const Value parameters = {{"passive", isRecorded("sensors")}};
        askPagesOf(method::sensorsList, "sensors", parameters, &CheckSources::sensors, &CheckRound::askDisks);
    }

    void askDisks()
    {
        if (!wants("disks")) {
            return askBattery();
        }
        askPagesOf(method::disksList, "disks", Value::object(), &CheckSources::disks, &CheckRound::readDisks);
    }

    /// The key of disk health has disks read, and with it the next answer waits for those whose turn it is. It goes with the
    /// connection: who checks every minute must not keep disks from their rest.
    void readDisks()
    {
        const bool isAnyUnread = std::any_of(sources_.disks.begin(), sources_.disks.end(),
            [](const Value& disk) { return text(disk, "state") == "unread"; });
        // Just after the start none is known that nobody asked for.
        const bool isUseful = isAnyUnread || sources_.disks.empty();
        if (reading_ == CheckReading::Passive || !isUseful) {
            return askBattery();
        }
        askOne(method::startSMARTStatus, Value::array(), [self = shared_from_this()](const Value&) {
            self->sources_.disks = Value();
            self->askPagesOf(
                method::disksList, "disks", Value::object(), &CheckSources::disks, &CheckRound::askBattery);
        });
    }

    void askBattery()
    {
        if (!wants("battery")) {
            return report();
        }
        const Value parameters = {{"passive", reading_ == CheckReading::Passive}};
        askOne(method::batteryState, parameters, [self = shared_from_this()](Value state) {
            self->sources_.battery = std::move(state);
            self->report();
        });
    }

    void report()
    {
        CheckReport report = checkAll(sources_, topics_);
        for (CheckedTopic& topic : report.topics) {
            if (topic.topic == "disks" && reading_ == CheckReading::Passive && !isRecorded("disks")) {
                topic.findings.push_back({"meridald", "record", CheckState::Unknown, "meridald",
                    "it does not record disks, so none is read while nobody looks at them; see [record] in "
                    "meridald.conf"});
            }
        }
        done_(std::move(report), sources_.status);
    }

    /// A refusal is null; without an answer there is nothing more to ask.
    void askOne(const std::string& method, const Value& parameters, std::function<void(Value)> use)
    {
        session_.client().call(
            method, parameters, [self = shared_from_this(), use = std::move(use)](Result<Value> result) {
                if (result) {
                    use(std::move(*result));
                } else if (result.error().code == ErrorCode::Unavailable) {
                    self->done_(reportWithoutDaemon(result.error().message), Value());
                } else {
                    use(Value());
                }
            });
    }

    void askPagesOf(const std::string& method, const char* list, const Value& parameters, Value CheckSources::*into,
        Next next, int page = 1)
    {
        askOne(method, Value::array({parameters}),
            [self = shared_from_this(), method, list, parameters, into, next, page](const Value& answer) {
                const Value* rows = find(answer, list);
                if (!rows || !rows->is_array()) {
                    return ((*self).*next)();
                }
                Value& all = self->sources_.*into;
                all = all.is_array() ? std::move(all) : Value::array();
                all.insert(all.end(), rows->begin(), rows->end());
                const Value* more = find(answer, "more");
                const Value* last = rows->empty() ? nullptr : find(rows->back(), "key");
                if (!more || *more != true || !last || page == mostCheckPages) {
                    return ((*self).*next)();
                }
                Value following = parameters;
                following["after"] = *last;
                self->askPagesOf(method, list, following, into, next, page + 1);
            });
    }

    Session& session_;
    const std::vector<std::string> topics_;
    const CheckReading reading_;
    const std::function<void(CheckReport, const Value&)> done_;
    CheckSources sources_;
};

} // namespace

void askCheck(Session& session, const std::vector<std::string>& topics, CheckReading reading,
    std::function<void(CheckReport report, const Value& status)> done)
{
    std::make_shared<CheckRound>(session, topics, reading, std::move(done))->ask();
}

std::string checkText(const CheckReport& report, bool withFigures)
{
    std::string text = checkHeadline(report, withFigures) + '\n';
    for (const CheckedTopic& topic : report.topics) {
        for (const std::string& line : topicLines(topic)) {
            text += line + '\n';
        }
    }
    return text;
}

int runCheckOf(Session& session, const std::vector<std::string>& topics, bool json)
{
    CheckState state = CheckState::Unknown;
    const auto show = [&session, &state, json](const CheckReport& report) {
        state = report.state();
        if (session.print(json ? answerLine(jsonOf(report)) : checkText(report, !session.medium().isTerminal))) {
            session.finish(exitStatus::success);
        }
    };
    session.runAnyhow([&](const Result<void>& connected) {
        if (connected) {
            askCheck(session, topics, CheckReading::WhereNeeded,
                [&show](const CheckReport& report, const Value&) { show(report); });
        } else {
            show(reportWithoutDaemon(
                fmt::format("no daemon at {} ({})", session.client().socketPath(), connected.error().message)));
        }
    });
    // What could not be said must not look like a state.
    return exitStatusOf(session.complaint().empty() ? state : CheckState::Unknown);
}

} // namespace meridal
