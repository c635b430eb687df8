#include "client/commands/SensorsCommand.h"

#include "client/screen/Format.h"
#include "client/screen/Screen.h"
#include "client/views/SensorsView.h"
#include "wire/Methods.h"

#include <csignal>
#include <functional>
#include <memory>
#include <utility>

namespace meridal {

namespace {

constexpr int largestPage = 500;    // the daemon's own limit
constexpr double watchInterval = 2; // s; the daemon's own rhythm

/// Asks page after page for all sensors.
class SensorQuery {
public:
    using Use = std::function<void(const Value& sensors)>;

    explicit SensorQuery(Session& session) : session_(session) { }

    void ask(Use use)
    {
        use_ = std::move(use);
        sensors_ = Value::array();
        askPage({{"limit", largestPage}});
    }

private:
    void askPage(const Value& parameters)
    {
        session_.call(method::sensorsList, Value::array({parameters}), [this](const Value& page) { take(page); });
    }

    void take(const Value& page)
    {
        const Value* part = find(page, "sensors");
        if (!part || !part->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no sensors: " + terminalJson(page));
        }
        sensors_.insert(sensors_.end(), part->begin(), part->end());
        const Value* more = find(page, "more");
        const auto last = part->empty() ? std::nullopt : text(part->back(), "key");
        if (more && *more == true && last) {
            return askPage({{"limit", largestPage}, {"after", *last}});
        }
        use_(sensors_);
    }

    Session& session_;
    Use use_;
    Value sensors_;
};

/// Asks every two seconds; on the whole terminal where there is one, else block after block.
class WatchedSensors {
public:
    WatchedSensors(Session& session, bool onTerminal, bool coloured)
        : session_(session), query_(session), isLive_(onTerminal && !session.arguments().json), coloured_(coloured)
    {
    }

    void start()
    {
        screen_ = isLive_ && session_.arguments().refreshes == 0 ? Screen::open(coloured_) : nullptr;
        if (screen_) {
            constexpr int standardInput = 0;
            resizes_ = session_.loop().watchSignals({SIGWINCH}, [this] {
                screen_->resized();
                screen_->show(lines_);
            });
            keys_ = session_.loop().watchReadable(standardInput, [this] { readKeys(); });
        }
        ask();
    }

private:
    void ask()
    {
        query_.ask([this](const Value& sensors) {
            next_ = session_.loop().after(watchInterval, [this] { ask(); });
            show(sensors);
        });
    }

    void show(const Value& sensors)
    {
        lines_ = sensorLines(sensors);
        ++shown_;
        if (screen_) {
            screen_->show(lines_);
        } else if (session_.arguments().json) {
            session_.print(terminalJson({{"sensors", sensors}}) + '\n');
        } else if (shown_ == 1 || session_.print("\n")) {
            session_.print(lines_);
        }
        if (shown_ == session_.arguments().refreshes || (sensors.empty() && !screen_)) {
            session_.finish(exitStatus::success);
        }
    }

    void readKeys()
    {
        const auto key = screen_->readKey();
        if (key == 'q') {
            session_.finish(exitStatus::success);
        } else if (!key && ++emptyReads_ > 2) {
            keys_.reset(); // an input that is at its end stays readable for ever
        } else if (key) {
            emptyReads_ = 0;
        }
    }

    Session& session_;
    SensorQuery query_;
    bool isLive_;
    bool coloured_;
    Lines lines_;
    std::size_t shown_ = 0;
    int emptyReads_ = 0;
    std::unique_ptr<Screen> screen_;
    std::unique_ptr<Watch> resizes_;
    std::unique_ptr<Watch> keys_;
    std::unique_ptr<Timer> next_;
};

} // namespace

int runSensors(Session& session, bool onTerminal, bool coloured)
{
    if (session.arguments().watch) {
        const auto interrupted =
            session.loop().watchSignals({SIGINT, SIGTERM}, [&session] { session.finish(exitStatus::success); });
        WatchedSensors watched(session, onTerminal, coloured);
        return session.run([&watched] { watched.start(); });
    }
    SensorQuery query(session);
    return session.run([&session, &query] {
        query.ask([&session](const Value& sensors) {
            const bool printed = session.arguments().json ? session.print(terminalJson({{"sensors", sensors}}) + '\n')
                                                          : session.print(sensorLines(sensors));
            if (printed) {
                session.finish(exitStatus::success);
            }
        });
    });
}

int runFans(Session& session)
{
    SensorQuery query(session);
    return session.run([&session, &query] {
        query.ask([&session](const Value& sensors) {
            const bool printed = session.arguments().json
                ? session.print(terminalJson({{"fans", fansOf(sensors)}}) + '\n')
                : session.print(fanLines(sensors));
            if (printed) {
                session.finish(exitStatus::success);
            }
        });
    });
}

} // namespace meridal
