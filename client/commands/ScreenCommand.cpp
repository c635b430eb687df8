// SPDX-License-Identifier: Apache-2.0
#include "client/commands/ScreenCommand.h"

#include "client/OwnDaemon.h"
#include "client/commands/Commands.h"
#include "client/commands/ScreenSession.h"
#include "client/panels/Panels.h"
#include "client/screen/Output.h"
#include "client/screen/Terminal.h"

#include <csignal>
#include <memory>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* screenExamples =
    R"(Opens by itself when meridalctl is typed alone on a terminal. ? shows all keys, q leaves.
It goes on while the daemon is away and when it comes back. With --spawn it starts a
daemon of its own, with your rights, and ends it with the screen; nothing of it stays.

Colour is never all that tells: words, signs and bold print do. NO_COLOR and
--color never go without it, --ascii without characters beyond ASCII.

Examples:
  meridalctl screen
  meridalctl screen processes --theme colourblind
  meridalctl screen --spawn
)";

struct ScreenCommandOptions {
    std::string panel = "overview";
    std::string theme = "default";
    bool ascii = false;
    bool noMouse = false;
    bool spawn = false;
};

ScreenOptions lookOf(const Session& session, const ScreenCommandOptions& options)
{
    return {.isColoured = session.medium().isColoured,
        .isAscii = options.ascii,
        .hasMouse = !options.noMouse,
        .theme = options.theme == "mono" ? Theme::Mono
            : options.theme == "default" ? Theme::Default
                                         : Theme::ColourBlind};
}

std::unique_ptr<Screen> openTerminal(const Session& session, const ScreenCommandOptions& options)
{
    const bool canHave = session.medium().isTerminal && inputIsTerminal();
    return canHave ? Screen::open(lookOf(session, options)) : nullptr;
}

int runOn(Session& session, std::unique_ptr<Screen> screen, const ScreenCommandOptions& options)
{
    std::unique_ptr<OwnDaemon> daemon;
    if (options.spawn) {
        auto started = OwnDaemon::start();
        if (!started) {
            screen.reset(); // the complaint is for the terminal as it was
            session.fail(exitStatus::noDaemon, started.error().message);
            return exitStatus::noDaemon;
        }
        daemon = std::move(*started);
        session.client().setSocketPath(daemon->socketPath());
    }
    const auto ends =
        session.loop().watchSignals({SIGINT, SIGTERM, SIGHUP}, [&] { session.finish(exitStatus::success); });
    ScreenSession shown(session, std::move(screen), options.panel);
    const int status = session.runAnyhow([&](const Result<void>& connected) { shown.start(connected); });
    session.client().setEvents({});
    return status;
}

int runScreen(Session& session, const ScreenCommandOptions& options)
{
    auto screen = openTerminal(session, options);
    if (!screen) {
        session.fail(exitStatus::usage,
            "the screen takes a terminal that can place text, for input and output; \"meridalctl help\" lists what "
            "goes "
            "without one");
        return exitStatus::usage;
    }
    return runOn(session, std::move(screen), options);
}

} // namespace

int openScreen(Session& session, const std::string& otherwise)
{
    const ScreenCommandOptions usual;
    if (auto screen = openTerminal(session, usual)) {
        return runOn(session, std::move(screen), usual);
    }
    return session.print(otherwise) ? exitStatus::success : exitStatus::refused;
}

void addScreen(Grammar& grammar)
{
    auto [screen, options] = grammar.add("screen", "Everything on a full screen, with keys and mouse", runScreen);
    screen.examples(screenExamples);
    std::vector<std::string> names;
    for (const auto& panel : allPanels()) {
        names.emplace_back(panel->name());
    }
    screen.choice("panel", options.panel, names, "Which to begin with");
    screen.choice("--theme", options.theme, {"default", "colourblind", "mono"}, "How it looks");
    screen.flag("--ascii", options.ascii, "Only ASCII characters; so it is, too, where the locale has no UTF-8");
    screen.flag("--no-mouse", options.noMouse, "Leave the mouse to the terminal, for marking text");
    screen.flag("--spawn", options.spawn, "Start a daemon for this screen alone");
}

} // namespace meridal
