// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/transport/ConnectionInbox.h"
#include "daemon/transport/EnvelopeRound.h"
#include "daemon/transport/JsonRpcDispatcher.h"
#include "daemon/transport/LongRequests.h"
#include "daemon/transport/OutputQueue.h"
#include "wire/LineFramer.h"
#include "wire/Link.h"

#include <asio/local/stream_protocol.hpp>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace meridal {

class UnixSocketConnection;

/// Counts of a listener; written on its thread and by those who send envelopes, read by anyone. Outlives both.
struct TransportCounters {
    std::atomic<std::uint64_t> openConnections{0};
    std::atomic<std::uint64_t> acceptedConnections{0};
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> badRequests{0};
    std::atomic<std::uint64_t> envelopesEncoded{0};
    std::atomic<std::uint64_t> envelopesSent{0};
    std::atomic<std::uint64_t> envelopesDropped{0};
};

/// What the connections of one listener share. Used on its thread, and outlives every open connection.
struct ConnectionSurroundings {
    const JsonRpcDispatcher& dispatcher;
    std::shared_ptr<TransportCounters> counters;
    std::shared_ptr<EnvelopeRound> round;
    /// A connection has ended and gave its descriptor back.
    std::function<void(const UnixSocketConnection&)> closed;
    /// Runs something on a second thread, then something on the listener's: for what would hold up the others.
    std::function<void(std::function<void()> work, std::function<void()> after)> aside;
    std::shared_ptr<LongRequests> longRequests;
    std::array<char, 16 * 1024> readBuffer; ///< one for all: an idle client has none of its own
    std::size_t heldInput = 0;              ///< bytes that wait for the rest of their lines, over all connections
    std::size_t unsentAnswers = 0;          ///< bytes, over all connections
};

/// One client of a UnixSocketListener. Serves one request at a time: until a request is done, the client's next bytes
/// stay in the kernel, and a client that sends too fast is held up there, by itself. Everything runs on the listener's
/// thread but for daemonResponse() and the outcomes of calls, which come through the inbox from any thread, and for long requests and
/// answers, which are read and written out aside.
class UnixSocketConnection final : public ClientLink, public std::enable_shared_from_this<UnixSocketConnection> {
public:
    using Socket = asio::local::stream_protocol::socket;

    UnixSocketConnection(Socket socket, ConnectionSurroundings& surroundings);

    /// Takes envelopes from here on.
    void open();
    /// Serves the client.
    void start(std::shared_ptr<ExportedConnection> exported);
    /// Tells the client why it is not served, and ends it.
    void turnAway(const char* why);
    /// Writes the envelopes that have come.
    void deliver();
    /// Ends it, with `ended` to the exported object. May be repeated.
    void close();

    const Peer& peer() const override { return peer_; }
    void daemonResponse(const EnvelopePtr& envelope) override;

private:
    void proceed();
    void dispatch(std::string_view line);
    void dispatchLater(std::string_view line);
    void dispatchAside(const LongRequests::Turn& turn);
    void carryOut(std::string_view line, const LongRequests::Turn& turn);
    void tellEnded();
    void onWake();
    void finish(JsonRpcOutcome outcome);
    void answered(std::string_view line);
    void waitReadable();
    void read();
    void waitWritable();
    void write();
    SharedLine nextEnvelopeLine();
    void refuse(JsonRpcCode code, const char* why);
    void endOfInput();
    bool mayTakeRequest() const;
    void accountInput();
    void accountOutput();

    // Absent once closed. With it goes every tie to the listener, whom the daemon's reference to this link may outlive.
    std::optional<Socket> socket_;
    ConnectionSurroundings& surroundings_;
    std::shared_ptr<TransportCounters> counters_;
    std::shared_ptr<EnvelopeRound> round_;
    Peer peer_;
    std::shared_ptr<ExportedConnection> exported_; // until `ended`
    LineFramer framer_;
    ConnectionInbox inbox_;
    OutputQueue output_;
    std::size_t accountedInput_ = 0;
    std::size_t accountedOutput_ = 0;
    std::shared_ptr<const std::string> longLine_; // that waits for its turn
    int aside_ = 0;        // requests that the second thread has, which calls the exported object
    bool serving_ = false; // a request is being served
    bool ending_ = false;  // no more input: write what was answered, then close
    bool waitingReadable_ = false;
    bool waitingWritable_ = false;
};

} // namespace meridal
