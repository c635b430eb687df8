// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/EventLoop.h"
#include "exporter/HttpAnswers.h"
#include "exporter/SharedMetrics.h"

#include <asio/generic/stream_protocol.hpp>

#include <array>
#include <functional>
#include <memory>
#include <string>

namespace meridal {

/// A client's connection: one request after another, each bounded in length and time, and none of them with a body. All of
/// it happens on the loop's thread, so one that is slow holds up nobody.
class HttpConnection : public std::enable_shared_from_this<HttpConnection> {
public:
    using Socket = asio::generic::stream_protocol::socket;
    using Ended = std::function<void(const std::shared_ptr<HttpConnection>&)>;

    /// What it is at; the first of these is given up first when room is needed.
    enum class State {
        Parting, ///< all said; waits for the client to have read it
        Idle,    ///< between two requests
        Reading,
        Writing,
        Waiting, ///< for the daemon
        Closed,
    };

    /// `address` is whose share of the connections it takes; `ended` is told once.
    HttpConnection(
        EventLoop& loop, HttpAnswers& answers, SharedMetrics& metrics, Socket socket, std::string address, Ended ended);

    void start();
    void close();

    State state() const { return state_; }
    /// Since when, of the loop's clock.
    double since() const { return since_; }
    const std::string& address() const { return address_; }

private:
    static constexpr std::size_t longestRequest = 8192; ///< bytes, up to its empty line

    void enter(State state, double longest);
    void read();
    void took(std::size_t count);
    void look(std::size_t from);
    void answer();
    void write(HttpAnswer answer);
    void wrote();
    void part();
    void discard();

    EventLoop& loop_;
    HttpAnswers& answers_;
    SharedMetrics& metrics_;
    Socket socket_;
    const std::string address_;
    Ended ended_;
    State state_ = State::Reading;
    double since_ = 0;
    std::unique_ptr<Timer> patience_;
    std::array<char, longestRequest> held_{}; ///< what the client sent
    std::size_t heldSize_ = 0;
    std::size_t requestSize_ = 0; ///< of the request at its beginning
    HttpAnswer answer_;           ///< what is being written
    std::size_t discarded_ = 0;
};

} // namespace meridal
