// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/UnixSocketConnection.h"

#include "daemon/transport/PeerCredentials.h"
#include "wire/Methods.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>

#include <fcntl.h>
#include <utility>

namespace meridal {

namespace {

/// A client with this many bytes of answers unread gets no further request served until it has read.
constexpr std::size_t unsentAnswersLimit = 256 * 1024;
/// Beyond this over all clients, a client gets a request served only when it has read every answer before.
constexpr std::size_t unsentAnswersOfAllLimit = 16 * 1024 * 1024;
/// Unfinished lines of all clients together; beyond it, a client may keep no more than the smaller figure.
constexpr std::size_t heldInputOfAllLimit = 32 * 1024 * 1024;
constexpr std::size_t heldInputAlwaysGranted = 64 * 1024;

/// The one encoder of envelopes in this program, called once for each of them.
SharedLine lineOf(const Envelope& envelope, TransportCounters& counters)
{
    const auto encode = [&counters](const Envelope& one) -> std::shared_ptr<const void> {
        ++counters.envelopesEncoded;
        std::string made;
        const std::string_view json = one.json(made);
        return std::make_shared<const std::string>(one.method().empty()
                ? encodeNotification(method::daemonResponse, json)
                : encodeNamedNotification(one.method(), json));
    };
    return std::static_pointer_cast<const std::string>(envelope.encoded(encode));
}

} // namespace

UnixSocketConnection::UnixSocketConnection(Socket socket, ConnectionSurroundings& surroundings)
    : socket_(std::move(socket))
    , surroundings_(surroundings)
    , counters_(surroundings.counters)
    , peer_(readPeerCredentials(socket_->native_handle()))
    , output_([this] { return nextEnvelopeLine(); })
{
    fcntl(socket_->native_handle(), F_SETFD, FD_CLOEXEC);
}

void UnixSocketConnection::open()
{
    asio::error_code error;
    socket_->non_blocking(true, error);
    inbox_.open([weak = weak_from_this(), executor = socket_->get_executor()] {
        asio::post(executor, [weak] {
            if (const auto self = weak.lock()) {
                self->onWake();
            }
        });
    });
}

void UnixSocketConnection::start(std::shared_ptr<ExportedConnection> exported)
{
    exported_ = std::move(exported);
    ++counters_->openConnections;
    proceed();
}

void UnixSocketConnection::close()
{
    if (!socket_) {
        return;
    }
    inbox_.close();
    endOfInput();
    socket_.reset();
    output_ = OutputQueue([] { return nullptr; });
    accountInput();
    accountOutput();
    surroundings_.closed(*this);
}

void UnixSocketConnection::daemonResponse(const EnvelopePtr& envelope)
{
    if (inbox_.put(envelope)) {
        ++counters_->envelopesDropped;
    }
}

/// Serves the next complete line, or waits for one. The one place that decides to take input.
void UnixSocketConnection::proceed()
{
    if (!socket_ || serving_ || ending_ || waitingReadable_ || !mayTakeRequest()) {
        return;
    }
    if (const auto line = framer_.next()) {
        dispatch(*line);
        return;
    }
    accountInput();
    if (framer_.overflowed()) {
        refuse(JsonRpcCode::InvalidRequest, "a line is longer than 1048576 bytes; the connection is closed");
    } else if (accountedInput_ > heldInputAlwaysGranted && surroundings_.heldInput > heldInputOfAllLimit) {
        refuse(JsonRpcCode::Unavailable, "too many long lines from all clients at once; the connection is closed");
    } else {
        waitReadable();
    }
}

void UnixSocketConnection::dispatch(std::string_view line)
{
    serving_ = true;
    ++counters_->requests;
    const auto exported = exported_; // lives through the call whatever the call does
    const Caller caller(peer_, weak_from_this());
    surroundings_.dispatcher.dispatch(line, *exported, caller, [weak = weak_from_this()](JsonRpcOutcome outcome) {
        // Through the inbox even from inside the call: between two requests of one client the others get their turn.
        if (const auto self = weak.lock()) {
            self->inbox_.put(std::move(outcome));
        }
    });
}

void UnixSocketConnection::onWake()
{
    if (!socket_) {
        return;
    }
    inbox_.awake();
    const auto outcome = inbox_.takeOutcome();
    write(); // envelopes that a call sent come before its answer
    if (outcome && socket_) {
        finish(*outcome);
    }
}

void UnixSocketConnection::finish(const JsonRpcOutcome& outcome)
{
    serving_ = false;
    if (outcome.refused) {
        ++counters_->badRequests;
    }
    if (outcome.answer) {
        answer(*outcome.answer);
    }
    proceed();
}

void UnixSocketConnection::waitReadable()
{
    waitingReadable_ = true;
    socket_->async_wait(Socket::wait_read, [self = shared_from_this()](asio::error_code error) {
        self->waitingReadable_ = false;
        if (self->socket_ && !error) {
            self->read();
        }
    });
}

void UnixSocketConnection::read()
{
    asio::error_code error;
    const std::size_t count = socket_->read_some(asio::buffer(surroundings_.readBuffer), error);
    if (!error) {
        framer_.append({surroundings_.readBuffer.data(), count});
    } else if (error == asio::error::eof) {
        endOfInput();
        write();
        return;
    } else if (error != asio::error::would_block && error != asio::error::interrupted) {
        close();
        return;
    }
    proceed();
}

void UnixSocketConnection::waitWritable()
{
    if (waitingWritable_) {
        return;
    }
    waitingWritable_ = true;
    socket_->async_wait(Socket::wait_write, [self = shared_from_this()](asio::error_code error) {
        self->waitingWritable_ = false;
        if (self->socket_ && !error) {
            self->write();
            self->proceed();
        }
    });
}

/// Writes as much as the client's socket takes.
void UnixSocketConnection::write()
{
    if (waitingWritable_) {
        return;
    }
    for (auto bytes = output_.front(); !bytes.empty(); bytes = output_.front()) {
        asio::error_code error;
        const std::size_t count = socket_->write_some(asio::buffer(bytes.data(), bytes.size()), error);
        if (error == asio::error::would_block) {
            waitWritable();
            accountOutput();
            return;
        }
        if (error && error != asio::error::interrupted) {
            close();
            return;
        }
        if (output_.consume(count) == OutputQueue::Finished::Envelope) {
            ++counters_->envelopesSent;
        }
    }
    accountOutput();
    if (ending_) {
        close();
    }
}

SharedLine UnixSocketConnection::nextEnvelopeLine()
{
    const EnvelopePtr envelope = ending_ ? nullptr : inbox_.takeEnvelope();
    return envelope ? lineOf(*envelope, *counters_) : nullptr;
}

void UnixSocketConnection::answer(const JsonRpcAnswer& answer)
{
    output_.addAnswer(encode(answer));
    accountOutput();
    write();
}

void UnixSocketConnection::refuse(JsonRpcCode code, const char* why)
{
    ++counters_->requests;
    ++counters_->badRequests;
    endOfInput();
    answer({nullptr, nullptr, JsonRpcFailure{code, why}});
}

void UnixSocketConnection::endOfInput()
{
    ending_ = true;
    framer_.discard();
    accountInput();
    if (const auto exported = std::exchange(exported_, nullptr)) {
        --counters_->openConnections;
        exported->ended();
    }
}

bool UnixSocketConnection::mayTakeRequest() const
{
    return accountedOutput_ == 0
        || (accountedOutput_ < unsentAnswersLimit && surroundings_.unsentAnswers < unsentAnswersOfAllLimit);
}

void UnixSocketConnection::accountInput()
{
    const std::size_t held = socket_ ? framer_.heldBytes() : 0;
    surroundings_.heldInput += held - accountedInput_;
    accountedInput_ = held;
}

void UnixSocketConnection::accountOutput()
{
    const std::size_t unsent = output_.unsentAnswers();
    surroundings_.unsentAnswers += unsent - accountedOutput_;
    accountedOutput_ = unsent;
}

} // namespace meridal
