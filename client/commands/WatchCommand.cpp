#include "client/commands/WatchCommand.h"

#include "base/Value.h"
#include "client/screen/Format.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <csignal>
#include <string>

namespace meridal {

namespace {

constexpr double reconnectInterval = 1; // s
constexpr int watchRequestInterval = 2; // s; the daemon notes it and keeps its own rhythm

class Watcher {
public:
    explicit Watcher(Session& session) : session_(session) { }

    void start()
    {
        session_.client().setReconnectInterval(reconnectInterval);
        session_.client().setEvents({[this] { connected(); },
            [this](const Error&) {
                complain("the daemon at " + session_.client().socketPath() + " closed the connection; waiting for it");
            },
            [this](const Dictionary& envelope) { received(envelope); }});
    }

private:
    void connected()
    {
        if (session_.arguments().hierarchy) {
            ask(method::enableHierachy, Value::array());
        }
        for (const std::int64_t key : session_.arguments().keys) {
            if (key == mask(RequestKey::SmartTemperatures)) {
                ask(method::startSMARTTemps, Value::array()); // unlike a plain request these also open the disks
            } else if (key == mask(RequestKey::SmartStatus)) {
                ask(method::startSMARTStatus, Value::array());
            } else {
                ask(method::startRequestWithKey, Value::array({key, watchRequestInterval}));
            }
        }
    }

    void ask(const std::string& method, const Value& parameters)
    {
        session_.client().call(method, parameters, [this](const Result<Value>& result) {
            if (!result && result.error().code != ErrorCode::Unavailable) {
                session_.fail(exitStatus::refused, result.error().message);
            }
        });
    }

    /// The daemon sends network lists to everybody once one client asks for them.
    bool isWanted(const Dictionary& envelope) const
    {
        const auto type = parseUntrusted(text(envelope, "type").value_or(""));
        if (!type || !type->is_number_integer()) {
            return false;
        }
        const auto bits = type->get<std::int64_t>();
        for (const std::int64_t key : session_.arguments().keys) {
            if ((key & bits) != 0) {
                return true;
            }
        }
        return false;
    }

    void received(const Dictionary& envelope)
    {
        const bool wanted = isWanted(envelope);
        if (wanted && session_.print(terminalJson(envelope) + '\n') && ++printed_ == session_.arguments().refreshes) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    std::size_t printed_ = 0;
};

} // namespace

int runWatch(Session& session)
{
    const auto interrupted =
        session.loop().watchSignals({SIGINT, SIGTERM}, [&session] { session.finish(exitStatus::success); });
    Watcher watcher(session);
    const int status = session.run([&watcher] { watcher.start(); });
    session.client().setEvents({});
    return status;
}

} // namespace meridal
