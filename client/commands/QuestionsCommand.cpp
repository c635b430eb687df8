// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "base/Value.h"
#include "client/commands/Commands.h"
#include "client/screen/Format.h"
#include "client/views/Answers.h"
#include "client/views/StatusView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

struct PingOptions {
    std::size_t count = 0; ///< 0: once
};

struct StatusOptions {
    bool json = false;
};

/// Round trips one after another, each begun when the one before has ended.
class Pinger {
public:
    Pinger(Session& session, std::size_t wanted) : session_(session), wanted_(wanted) { }

    void ask()
    {
        const double start = session_.loop().now();
        session_.call(method::exists, Value::array(), [this, start](const Value&) {
            const double took = session_.loop().now() - start;
            shortest_ = std::min(shortest_, took);
            longest_ = std::max(longest_, took);
            sum_ += took;
            if (++count_ < wanted_) {
                ask();
            } else {
                report();
            }
        });
    }

private:
    void report()
    {
        std::string text = fmt::format("the daemon at {} answers in {}", printable(session_.client().socketPath()),
            formatMilliseconds(sum_ / static_cast<double>(count_)));
        if (count_ > 1) {
            text += fmt::format(" on average of {} (shortest {}, longest {})", count_, formatMilliseconds(shortest_),
                formatMilliseconds(longest_));
        }
        session_.conclude(text + '\n');
    }

    Session& session_;
    std::size_t wanted_;
    std::size_t count_ = 0;
    double sum_ = 0; ///< s, as the next two
    double shortest_ = std::numeric_limits<double>::infinity();
    double longest_ = 0;
};

int runVersion(Session& session)
{
    return session.run([&session] {
        session.call(method::version, Value::array(), [&session](const Value& answer) {
            if (!answer.is_array() || answer.size() < 2 || !answer[0].is_number() || !answer[1].is_number()) {
                session.fail(exitStatus::refused, "the daemon's answer is no version: " + terminalJson(answer));
                return;
            }
            session.conclude(
                fmt::format("meridald {:.4g} (build {:.0f})\n", answer[0].get<double>(), answer[1].get<double>()));
        });
    });
}

int runPing(Session& session, const PingOptions& options)
{
    Pinger pinger(session, std::max<std::size_t>(options.count, 1));
    return session.run([&pinger] { pinger.ask(); });
}

int runStatus(Session& session, const StatusOptions& options)
{
    return session.run([&] {
        session.call(method::status, Value::array(), [&](const Value& status) {
            options.json ? session.conclude(answerLine(status)) : session.conclude(statusLines(status));
        });
    });
}

} // namespace

void addQuestions(Grammar& grammar)
{
    grammar.add("version", "The daemon's version and build", runVersion);

    auto [ping, rounds] = grammar.add("ping", "How long the daemon takes to answer", runPing);
    ping.count("-c,--count", rounds.count, "Ask so many times in a row");

    auto [status, form] =
        grammar.add("status", "What the daemon costs, and what it cannot measure here and why", runStatus);
    status.flag("--json", form.json, "As JSON");
}

} // namespace meridal
