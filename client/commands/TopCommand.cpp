// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/LiveScreen.h"
#include "client/commands/TopSession.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <thread>

namespace meridal {

namespace {

constexpr const char* topExamples = R"(On a terminal the list is live; the keys are
  q       quit
  1 to 5  (or c m d n e) cpu, memory, disk, network, energy
  h       group processes under the application that is responsible for them
Elsewhere, and with --once, --refreshes or --json, it is text, one block a refresh.

Figures: CPU in percent of one core; memory in bytes; disk and network in bytes a
second; energy as a score that counts a wake-up as 500 microseconds of CPU. Totals
are those of the processes listed; who uses nothing is left out.

Examples:
  meridalctl top                      what uses the processors, live
  meridalctl top memory -n 5 --once   the five largest, as text
  meridalctl top disk --json | jq .   for programs
)";

constexpr std::size_t rowsWithoutScreen = 20;

struct TopOptions {
    std::string list = "cpu";
    bool hierarchy = false;
    std::size_t rows = 0;      ///< 0: as many as fit, 20 where there is no screen
    std::size_t refreshes = 0; ///< as text, stop after so many; 0: never
    bool once = false;         ///< the same as one refresh
    double settle = 0.5;       ///< s after the first list before rates are real
    bool json = false;

    TopFeed feed(bool isLive) const
    {
        TopFeed feed{.hierarchy = hierarchy, .settle = isLive ? 0 : settle, .hasStatus = isLive};
        const auto named = std::find_if(
            allTopLists.begin(), allTopLists.end(), [this](RequestKey each) { return listName(each) == list; });
        feed.list = *named;
        return feed;
    }
};

TopFrame withCores(TopFrame frame)
{
    frame.cores = std::thread::hardware_concurrency(); // the daemon is on this machine: it is reached by a file
    return frame;
}

/// Text or JSON, one block or object a refresh.
class PrintedTop final : public TopDisplay {
public:
    PrintedTop(Session& session, const TopOptions& options) : session_(session), options_(options) { }

    void tableArrived(const TopFrame& frame) override
    {
        if (++refreshes_ > 1 && !options_.json && !session_.print("\n")) {
            return;
        }
        const std::size_t rows = options_.rows > 0 ? options_.rows : rowsThatFit();
        const bool printed = options_.json
            ? session_.print(json(frame, rows))
            : session_.print(tableLines(withCores(frame), rows, terminalColumns().value_or(0)));
        if (printed && refreshes_ == (options_.once ? 1 : options_.refreshes)) {
            session_.finish(exitStatus::success);
        }
    }

    void frameChanged(const TopFrame& frame) override
    {
        if (wasConnected_ && !frame.connected) {
            complain("the daemon at " + session_.client().socketPath() + " closed the connection; waiting for it");
        }
        wasConnected_ = frame.connected;
    }

private:
    /// Without scrolling, on a terminal; for programs all that there is.
    std::size_t rowsThatFit() const
    {
        constexpr int around = 5; // the totals, where traffic went, the titles, and the shell's own before and after
        const auto rows = options_.json ? std::nullopt : terminalRows();
        return options_.json ? std::numeric_limits<std::size_t>::max()
            : rows           ? static_cast<std::size_t>(std::max(*rows - around, 1))
                             : rowsWithoutScreen;
    }

    std::string json(const TopFrame& frame, std::size_t rows) const
    {
        Dictionary object = tableAsJson(*frame.table, rows);
        object["hierarchy"] = frame.hierarchy;
        object["refresh"] = refreshes_;
        return jsonLine(object);
    }

    Session& session_;
    const TopOptions& options_;
    std::size_t refreshes_ = 0;
    bool wasConnected_ = true;
};

/// The whole terminal, repainted at every change; keys steer it.
class LiveTop final : public TopDisplay {
public:
    LiveTop(Session& session, const TopOptions& options) : options_(options), top_(session, *this, options.feed(true))
    {
        screen_ = LiveScreen::open(
            session, [this] { paint(); }, [this](char key) { press(key); });
    }

    /// False where there is no terminal to be live on.
    bool start()
    {
        if (screen_) {
            top_.start();
        }
        return screen_ != nullptr;
    }

    void tableArrived(const TopFrame&) override { paint(); }
    void frameChanged(const TopFrame&) override { paint(); }

private:
    void paint()
    {
        const std::size_t rows = options_.rows > 0 ? options_.rows : std::numeric_limits<std::size_t>::max();
        screen_->show(screenLines(withCores(top_.frame()), rows, screen_->rows(), screen_->columns()));
    }

    void press(char key)
    {
        constexpr std::string_view digits = "12345";
        constexpr std::string_view letters = "cmdne"; // in the order of the lists, as the digits
        if (key == 'h') {
            top_.toggleHierarchy();
        } else if (const auto place = std::min(digits.find(key), letters.find(key)); place != std::string_view::npos) {
            top_.choose(allTopLists.at(place));
        }
    }

    const TopOptions& options_;
    TopSession top_;
    std::unique_ptr<LiveScreen> screen_;
};

int runTop(Session& session, const TopOptions& options)
{
    const bool isLive = !options.json && !options.once && options.refreshes == 0;
    std::unique_ptr<LiveTop> live;
    PrintedTop printed(session, options);
    TopSession text(session, printed, options.feed(false));
    return session.runUntilInterrupted([&] {
        live = isLive ? std::make_unique<LiveTop>(session, options) : nullptr; // not before the daemon is there
        if (!live || !live->start()) {
            text.start();
        }
    });
}

} // namespace

void addTop(Grammar& grammar)
{
    auto [top, options] = grammar.add("top", "The processes that use the most, live or as text", runTop);
    top.examples(topExamples);
    std::vector<std::string> names;
    for (const RequestKey list : allTopLists) {
        names.emplace_back(listName(list));
    }
    top.choice("list", options.list, names, "What to rank by");
    top.flag("--hierarchy", options.hierarchy, "Group processes under the one responsible for them");
    top.count("-n,--rows", options.rows, "Show at most so many rows");
    top.flag("--json", options.json, "One JSON object a refresh");
    top.count("--refreshes", options.refreshes, "Stop after so many, as text");
    top.flag("--once", options.once, "The same as --refreshes 1");
    top.exclude("--once", "--refreshes");
    top.seconds("--settle", options.settle, 0, 60, "Seconds that rates need before the first refresh as text");
}

} // namespace meridal
