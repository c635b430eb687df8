// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Value.h"
#include "client/EventLoop.h"
#include "wire/DaemonMessage.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace meridal {

/// A connection to the daemon over its Unix socket. Everything happens on the loop's thread; callbacks may call back in
/// but not destroy the client.
class DaemonClient {
public:
    /// Called once per call: the result, the daemon's own refusal, or Unavailable when it could not be had at all.
    using Reply = std::function<void(Result<Value>)>;

    /// What the client tells its owner; each may be empty.
    struct Events {
        std::function<void()> connected;                          ///< after every successful connect
        std::function<void(const Error&)> disconnected;           ///< an open connection ended
        std::function<void(const Dictionary& envelope)> envelope; ///< a pushed result
        std::function<void(const Notification&)> changed = {};    ///< something that is watched
    };

    DaemonClient(EventLoop& loop, std::string socketPath);
    ~DaemonClient();
    DaemonClient(const DaemonClient&) = delete;
    DaemonClient& operator=(const DaemonClient&) = delete;

    void setEvents(Events events) { events_ = std::move(events); }
    /// How long an answer may take (s) before the call fails.
    void setTimeout(double seconds) { timeout_ = seconds; }
    /// Connects again after a connection ended, trying every so many seconds. A first attempt that fails is final.
    void setReconnectInterval(double seconds) { reconnectInterval_ = seconds; }

    /// Tries once and tells the outcome, never inside this call. Not while connected.
    void connect(std::function<void(Result<void>)> done);
    /// Sends a call; an array of parameters in order. Fails at once, by its reply, when not connected.
    void call(const std::string& method, const Value& parameters, Reply reply);

    bool isConnected() const { return connected_; }
    /// Not while connected.
    void setSocketPath(std::string path) { socketPath_ = std::move(path); }
    const std::string& socketPath() const { return socketPath_; }

private:
    struct Connection;
    struct Pending {
        Reply reply;
        std::unique_ptr<Timer> timeout;
    };
    using ConnectionPtr = std::shared_ptr<Connection>;

    void opened(const ConnectionPtr& connection, const std::function<void(Result<void>)>& done);
    void reconnect();
    void read(const ConnectionPtr& connection);
    void write(const ConnectionPtr& connection);
    void takeLines(const ConnectionPtr& connection);
    void answered(Answer answer);
    void expire(std::int64_t id);
    void lose(const ConnectionPtr& connection, const std::string& why);

    EventLoop& loop_;
    std::string socketPath_;
    Events events_;
    double timeout_ = 5;
    double reconnectInterval_ = 0; ///< s; 0: never
    ConnectionPtr connection_;
    bool connected_ = false;
    std::int64_t lastId_ = 0;
    std::map<std::int64_t, Pending> pending_; ///< by id, oldest first
    std::unique_ptr<Timer> retry_;
    Lifetime lifetime_;
};

} // namespace meridal
