// SPDX-License-Identifier: Apache-2.0
#include "client/panels/ActionDialog.h"

#include "base/Text.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <utility>

namespace meridal {

namespace {

struct OfferedSignal {
    char key;
    int number;
    std::string_view name;
};

constexpr std::array<OfferedSignal, 8> offeredSignals = {
    {{'t', SIGTERM, "TERM"}, {'k', SIGKILL, "KILL"}, {'i', SIGINT, "INT"}, {'h', SIGHUP, "HUP"}, {'s', SIGSTOP, "STOP"},
        {'c', SIGCONT, "CONT"}, {'1', SIGUSR1, "USR1"}, {'2', SIGUSR2, "USR2"}}};

constexpr int nicest = 19;
constexpr int leastNice = -20;

std::optional<int> niceFrom(const std::string& text)
{
    int nice = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), nice);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber && nice >= leastNice && nice <= nicest ? std::optional(nice) : std::nullopt;
}

} // namespace

std::string signalName(int signal)
{
    const auto found = std::find_if(
        offeredSignals.begin(), offeredSignals.end(), [&](const OfferedSignal& each) { return each.number == signal; });
    return found == offeredSignals.end() ? fmt::format("signal {}", signal) : fmt::format("SIG{}", found->name);
}

std::string processesText(const std::vector<SeenProcess>& processes)
{
    return processes.size() == 1 ? fmt::format("{} ({})", processes.front().name, processes.front().pid)
                                 : fmt::format("{} processes", processes.size());
}

ActionDialog::ActionDialog(ReniceWish wish) : wish_(wish), entry_(std::to_string(wish.nice)) { }

Line ActionDialog::line(int columns) const
{
    if (const auto* renice = std::get_if<ReniceWish>(&wish_)) {
        return entry_.line(fmt::format("Nice (-20 to 19) of {}: ", processesText({renice->process})), columns);
    }
    const auto& wish = std::get<SignalWish>(wish_);
    if (wish.signal) {
        const std::string question =
            fmt::format("Send {} to {}?", signalName(*wish.signal), processesText(wish.processes));
        constexpr int answers = 14;
        Line line = {{Style::Warning,
            displayWidth(question) > columns - answers ? fitLeft(question, columns - answers) : question}};
        line.insert(
            line.end(), {{Style::Title, "  y"}, {Style::Plain, " yes"}, {Style::Title, "  n"}, {Style::Plain, " no"}});
        return line;
    }
    Line line = {{Style::Warning, "Signal?"}};
    for (const OfferedSignal& each : offeredSignals) {
        line.push_back({Style::Title, std::string("  ") + each.key});
        line.push_back({Style::Plain, fmt::format(" {}", each.name)});
    }
    line.push_back({Style::Plain, "  to " + processesText(wish.processes)});
    return line;
}

ActionDialog::Outcome ActionDialog::press(const Key& key)
{
    auto* signal = std::get_if<SignalWish>(&wish_);
    return signal ? pressOnSignal(*signal, key) : pressOnNice(key);
}

ActionDialog::Outcome ActionDialog::pressOnSignal(SignalWish& wish, const Key& key)
{
    if (wish.signal) {
        return key.is('y') ? Outcome::Done : Outcome::GivenUp;
    }
    const auto found = std::find_if(offeredSignals.begin(), offeredSignals.end(),
        [&](const OfferedSignal& each) { return key.is(static_cast<char32_t>(each.key)); });
    if (found == offeredSignals.end()) {
        return Outcome::GivenUp;
    }
    wish.signal = found->number;
    return Outcome::Asking;
}

ActionDialog::Outcome ActionDialog::pressOnNice(const Key& key)
{
    switch (entry_.press(key)) {
    case TextEntry::Outcome::GivenUp:
        return Outcome::GivenUp;
    case TextEntry::Outcome::Done:
        return niceFrom(entry_.text()) ? Outcome::Done : Outcome::Asking;
    case TextEntry::Outcome::Typing:
        break;
    }
    return Outcome::Asking;
}

ProcessAction ActionDialog::action() const
{
    if (const auto* renice = std::get_if<ReniceWish>(&wish_)) {
        return ReniceAction{renice->process, niceFrom(entry_.text()).value_or(renice->nice)};
    }
    const auto& wish = std::get<SignalWish>(wish_);
    return SignalAction{wish.processes, wish.signal.value_or(0)};
}

} // namespace meridal
