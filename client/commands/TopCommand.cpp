#include "client/commands/TopCommand.h"

#include "client/commands/TopSession.h"
#include "client/screen/Format.h"
#include "client/screen/Screen.h"

#include <algorithm>
#include <csignal>
#include <limits>
#include <memory>
#include <thread>

namespace meridal {

namespace {

constexpr std::size_t rowsWithoutScreen = 20;

TopFrame withCores(TopFrame frame)
{
    frame.cores = std::thread::hardware_concurrency(); // the daemon is on this machine: it is reached by a file
    return frame;
}

/// Text or JSON, one block or object a refresh.
class PrintedTop final : public TopDisplay {
public:
    explicit PrintedTop(Session& session) : session_(session) { }

    void tableArrived(const TopFrame& frame) override
    {
        if (++refreshes_ > 1 && !session_.arguments().json && !session_.print("\n")) {
            return;
        }
        const std::size_t asked = session_.arguments().rows;
        const std::size_t rows = asked > 0 ? asked : rowsWithoutScreen;
        const bool printed = session_.arguments().json ? session_.print(json(frame, rows))
                                                       : session_.print(tableLines(withCores(frame), rows, 0));
        if (printed && refreshes_ == session_.arguments().refreshes) {
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
    std::string json(const TopFrame& frame, std::size_t rows) const
    {
        Dictionary object = tableAsJson(*frame.table, rows);
        object["hierarchy"] = frame.hierarchy;
        object["refresh"] = refreshes_;
        return terminalJson(object) + '\n';
    }

    Session& session_;
    std::size_t refreshes_ = 0;
    bool wasConnected_ = true;
};

/// The whole terminal, repainted at every change; keys steer it.
class LiveTop final : public TopDisplay {
public:
    LiveTop(Session& session, Screen& screen)
        : session_(session), screen_(screen), top_(session, *this, {.settle = 0, .hasStatus = true})
    {
    }

    void start()
    {
        constexpr int standardInput = 0;
        resizes_ = session_.loop().watchSignals({SIGWINCH}, [this] {
            screen_.resized();
            paint();
        });
        keys_ = session_.loop().watchReadable(standardInput, [this] { readKeys(); });
        top_.start();
    }

    void tableArrived(const TopFrame&) override { paint(); }
    void frameChanged(const TopFrame&) override { paint(); }

private:
    void paint()
    {
        const std::size_t asked = session_.arguments().rows;
        const std::size_t rows = asked > 0 ? asked : std::numeric_limits<std::size_t>::max();
        screen_.show(screenLines(withCores(top_.frame()), rows, screen_.rows(), screen_.columns()));
    }

    void readKeys()
    {
        bool gotKey = false;
        while (const auto key = screen_.readKey()) {
            gotKey = true;
            press(*key);
        }
        // An input that is at its end stays readable for ever; a key's escape sequence may come in pieces.
        constexpr int enoughNothing = 3;
        emptyReads_ = gotKey ? 0 : emptyReads_ + 1;
        if (emptyReads_ >= enoughNothing) {
            keys_.reset();
        }
    }

    void press(char key)
    {
        constexpr std::string_view digits = "12345";
        constexpr std::string_view letters = "cmdne"; // in the order of the lists, as the digits
        if (key == 'q') {
            session_.finish(exitStatus::success);
        } else if (key == 'h') {
            top_.toggleHierarchy();
        } else if (const auto place = std::min(digits.find(key), letters.find(key)); place != std::string_view::npos) {
            top_.choose(allTopLists.at(place));
        }
    }

    Session& session_;
    Screen& screen_;
    TopSession top_;
    std::unique_ptr<Watch> resizes_;
    std::unique_ptr<Watch> keys_;
    int emptyReads_ = 0;
};

} // namespace

int runTop(Session& session, bool onTerminal, bool coloured)
{
    const auto interrupted =
        session.loop().watchSignals({SIGINT, SIGTERM}, [&session] { session.finish(exitStatus::success); });
    const bool isLive = onTerminal && !session.arguments().json && session.arguments().refreshes == 0;
    std::unique_ptr<Screen> screen;
    std::unique_ptr<LiveTop> live;
    PrintedTop printed(session);
    TopSession text(session, printed, {.settle = session.arguments().settle, .hasStatus = false});
    const int status = session.run([&] {
        screen = isLive ? Screen::open(coloured) : nullptr; // not before the daemon is known to be there
        if (!screen) {
            text.start();
            return;
        }
        live = std::make_unique<LiveTop>(session, *screen);
        live->start();
    });
    session.client().setEvents({});
    return status;
}

} // namespace meridal
