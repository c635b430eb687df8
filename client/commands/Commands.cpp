#include "client/commands/Commands.h"

#include "base/Text.h"
#include "base/Value.h"
#include "client/screen/Format.h"
#include "client/views/StatusView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <set>

namespace meridal {

namespace {

constexpr int connectionPidColumns = 8;

/// The names that the daemon found, and a complaint about the pids that it does not know.
void printProcesses(Session& session, const Value& found)
{
    std::string text = fitRight("PID", connectionPidColumns) + "  NAME\n";
    std::set<std::int64_t> known;
    for (const Value& process : found.is_array() ? found : Value::array()) {
        const auto pid = integer(process, "pid");
        if (pid) {
            known.insert(*pid);
            const std::string name = printable(meridal::text(process, "name").value_or("?"));
            text += fmt::format("{}  {}\n", fitRight(std::to_string(*pid), connectionPidColumns), name);
        }
    }
    if (!session.print(session.arguments().json ? terminalJson(found) + '\n' : text)) {
        return;
    }
    std::string unknown;
    for (const std::int64_t pid : session.arguments().pids) {
        unknown += known.count(pid) ? "" : fmt::format("{}{}", unknown.empty() ? "" : ", ", pid);
    }
    if (unknown.empty()) {
        session.finish(exitStatus::success);
    } else {
        session.fail(exitStatus::refused, "the daemon knows no process " + unknown);
    }
}

/// Round trips one after another, each begun when the one before has ended.
class Pinger {
public:
    explicit Pinger(Session& session) : session_(session) { }

    void ask()
    {
        const double start = session_.loop().now();
        session_.call(method::exists, Value::array(), [this, start](const Value&) {
            const double took = session_.loop().now() - start;
            shortest_ = std::min(shortest_, took);
            longest_ = std::max(longest_, took);
            sum_ += took;
            if (++count_ < session_.arguments().pings) {
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
        if (session_.print(text + '\n')) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    std::size_t count_ = 0;
    double sum_ = 0; ///< s, as the next two
    double shortest_ = std::numeric_limits<double>::infinity();
    double longest_ = 0;
};

} // namespace

int runProcesses(Session& session)
{
    return session.run([&session] {
        session.call(method::infoForPids, Value::array({session.arguments().pids}),
            [&session](const Value& found) { printProcesses(session, found); });
    });
}

int runVersion(Session& session)
{
    return session.run([&session] {
        session.call(method::version, Value::array(), [&session](const Value& answer) {
            if (!answer.is_array() || answer.size() < 2 || !answer[0].is_number() || !answer[1].is_number()) {
                session.fail(exitStatus::refused, "the daemon's answer is no version: " + terminalJson(answer));
                return;
            }
            const std::string text =
                fmt::format("meridald {:.4g} (build {:.0f})\n", answer[0].get<double>(), answer[1].get<double>());
            if (session.print(text)) {
                session.finish(exitStatus::success);
            }
        });
    });
}

int runPing(Session& session)
{
    Pinger pinger(session);
    return session.run([&pinger] { pinger.ask(); });
}

int runStatus(Session& session)
{
    return session.run([&session] {
        session.call(method::status, Value::array(), [&session](const Value& status) {
            const bool printed = session.arguments().json ? session.print(terminalJson(status) + '\n')
                                                          : session.print(statusLines(status));
            if (printed) {
                session.finish(exitStatus::success);
            }
        });
    });
}

int runCall(Session& session)
{
    Value parameters = Value::array();
    for (const std::string& word : session.arguments().parameters) {
        auto parsed = parseUntrusted(word);
        parameters.push_back(parsed ? std::move(*parsed) : Value(validUtf8(word)));
    }
    return session.run([&session, &parameters] {
        session.call(session.arguments().method, parameters, [&session](const Value& result) {
            if (session.print(terminalJson(result) + '\n')) {
                session.finish(exitStatus::success);
            }
        });
    });
}

} // namespace meridal
