// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CheckAlerts.h"

#include "base/Text.h"
#include "client/ChildProgram.h"
#include "client/check/AlertWatch.h"
#include "client/commands/CheckQuery.h"
#include "wire/CheckLimits.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <memory>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

/// What [alerts] says, as status tells it.
struct AlertSettings {
    std::string command;
    std::string mail;
    bool desktop = false;
    int after = static_cast<int>(checkLimits::alertLooks);
    double every = checkLimits::alertInterval;
};

AlertSettings alertSettings(const Value& status)
{
    AlertSettings settings;
    const Value* configuration = find(status, "configuration");
    if (const Value* alerts = configuration ? find(*configuration, "alerts") : nullptr) {
        settings.command = text(*alerts, "command").value_or("");
        settings.mail = text(*alerts, "mail").value_or("");
        const Value* desktop = find(*alerts, "desktop");
        settings.desktop = desktop && *desktop == true;
        settings.after = static_cast<int>(std::clamp(number(*alerts, "after").value_or(settings.after), 1.0, 100.0));
        settings.every = std::clamp(number(*alerts, "every").value_or(settings.every), 1.0, 86'400.0);
    }
    return settings;
}

std::string hostName()
{
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? printable(name.data()) : std::string();
}

/// Text of at most so many bytes, cut after a line.
std::string cutAfterLine(std::string text, std::size_t most)
{
    if (text.size() > most) {
        text.resize(text.rfind('\n', most - 1) == std::string::npos ? most : text.rfind('\n', most - 1) + 1);
    }
    return validUtf8(text);
}

/// "disks: CRITICAL, was ok".
std::string titleOf(const Alert& alert)
{
    std::string state(wordOf(alert.state));
    return fmt::format("{} {}, was {}", alert.topic, state, wordOf(alert.before));
}

class AlertLoop {
public:
    AlertLoop(Session& session, std::vector<std::string> topics, const CheckAlertOptions& options)
        : session_(session)
        , topics_(std::move(topics))
        , options_(options)
        , programs_(session.loop(), [](const std::string& what) { complain(what); })
    {
        session_.client().setEvents(
            {.connected = {}, .disconnected = [this](const Error&) { isConnected_ = false; }, .envelope = {}});
    }

    /// Connects where there is no connection, and looks.
    void look()
    {
        if (isConnected_) {
            return ask();
        }
        session_.client().connect([this](const Result<void>& outcome) {
            isConnected_ = outcome.has_value();
            if (isConnected_) {
                ask();
            } else {
                take(reportWithoutDaemon(
                         fmt::format("no daemon at {} ({})", session_.client().socketPath(), outcome.error().message)),
                    Value());
            }
        });
    }

private:
    void ask()
    {
        askCheck(session_, topics_, CheckReading::Passive,
            [this](CheckReport report, const Value& status) { take(std::move(report), status); });
    }

    /// While the daemon is away what it said last of alerts holds.
    void take(CheckReport report, const Value& status)
    {
        const bool isDaemonAsked = std::find(topics_.begin(), topics_.end(), "daemon") != topics_.end();
        if (!status.is_null()) {
            settings_ = alertSettings(status);
            if (!isDaemonAsked) { // that it answers again is told to those who were told that it does not
                report.topics.push_back({.topic = "daemon", .summary = "meridald answers", .things = {"meridald"}});
            }
        }
        for (const Alert& alert : watch_.look(report, settings_.after)) {
            tell(alert);
        }
        next_ = session_.loop().after(settings_.every, [this] { look(); });
    }

    void tell(const Alert& alert)
    {
        session_.print(titleOf(alert) + '\n' + alert.text);
        if (options_.alert && !settings_.command.empty()) {
            programs_.run({.words = {settings_.command}, .variables = variablesOf(alert), .input = inputOf(alert)});
        }
        if (options_.alert && !settings_.mail.empty()) {
            sendMail(alert);
        }
        if (options_.notify && settings_.desktop) {
            programs_.run({.words = {"notify-send", "--app-name=Meridal",
                               alert.state == CheckState::Critical ? "--urgency=critical" : "--urgency=normal", "--",
                               titleOf(alert), alert.text},
                .variables = variablesOf(alert),
                .input = {}});
        }
    }

    void sendMail(const Alert& alert)
    {
        const std::string header = fmt::format("To: {}\nSubject: [Meridal] {}: {}\nAuto-Submitted: auto-generated\n"
                                               "MIME-Version: 1.0\nContent-Type: text/plain; charset=utf-8\n"
                                               "Content-Transfer-Encoding: 8bit\n\n",
            settings_.mail, hostName(), titleOf(alert));
        programs_.run({.words = {"sendmail", "-i", "--", settings_.mail},
            .variables = variablesOf(alert),
            .input = header + cutAfterLine(alert.text, mostProgramInput - header.size())});
    }

    static std::string inputOf(const Alert& alert)
    {
        return cutAfterLine(titleOf(alert) + '\n' + alert.text, mostProgramInput);
    }

    static std::vector<std::string> variablesOf(const Alert& alert)
    {
        return {"MERIDAL_TOPIC=" + alert.topic, fmt::format("MERIDAL_STATE={}", wordOf(alert.state)),
            fmt::format("MERIDAL_BEFORE={}", wordOf(alert.before)), "MERIDAL_HOST=" + hostName(),
            "MERIDAL_TEXT=" + cutAfterLine(alert.text, mostProgramInput)};
    }

    Session& session_;
    const std::vector<std::string> topics_;
    const CheckAlertOptions options_;
    ProgramQueue programs_;
    AlertWatch watch_;
    AlertSettings settings_;
    bool isConnected_ = false;
    std::unique_ptr<Timer> next_;
};

} // namespace

int watchForAlerts(Session& session, const std::vector<std::string>& topics, const CheckAlertOptions& options)
{
    if (options.alert && geteuid() == 0) {
        session.fail(exitStatusOf(CheckState::Unknown),
            "--alert runs a program, and not as root; meridal-alerts.service does it as an ordinary user");
        return exitStatusOf(CheckState::Unknown);
    }
    AlertLoop loop(session, topics, options);
    const auto interrupted =
        session.loop().watchSignals({SIGINT, SIGTERM}, [&session] { session.finish(exitStatus::success); });
    loop.look();
    session.loop().run();
    session.client().setEvents({});
    return session.complaint().empty() ? exitStatus::success : exitStatusOf(CheckState::Unknown);
}

} // namespace meridal
