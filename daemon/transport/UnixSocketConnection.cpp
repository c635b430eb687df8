// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/UnixSocketConnection.h"

#include "daemon/transport/PeerCredentials.h"
#include "wire/Methods.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <string>
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
constexpr const char* tooManyLongLines = "too many long lines from all clients at once; the connection is closed";

/// Lines and answers up to this are dealt with on the listener's thread: 16 KiB of the smallest values take about 1 ms.
constexpr std::size_t shortLine = 16 * 1024; // bytes
constexpr std::size_t shortAnswer = 4096;    // values, and pieces of texts

/// Whether a value is made of no more parts than are left.
bool fitsInto(std::size_t& left, const Value& value)
{
    constexpr std::size_t piece = 64; // bytes
    const std::size_t here = 1 + (value.is_string() ? value.get_ref<const std::string&>().size() / piece : 0);
    if (here > left) {
        return false;
    }
    left -= here;
    return !value.is_structured()
        || std::all_of(value.begin(), value.end(), [&left](const Value& part) { return fitsInto(left, part); });
}

bool isShort(const JsonRpcAnswer& answer)
{
    std::size_t left = shortAnswer;
    return fitsInto(left, answer.result);
}

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
    , round_(surroundings.round)
    , peer_(readPeerCredentials(socket_->native_handle()))
    , output_([this] { return nextEnvelopeLine(); })
{
    fcntl(socket_->native_handle(), F_SETFD, FD_CLOEXEC);
}

void UnixSocketConnection::open()
{
    asio::error_code error;
    socket_->non_blocking(true, error);
    const bool hasNews = inbox_.open([weak = weak_from_this(), executor = socket_->get_executor()] {
        asio::post(executor, [weak] {
            if (const auto self = weak.lock()) {
                self->onWake();
            }
        });
    });
    if (hasNews) {
        round_->add(weak_from_this());
    }
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
    const ConnectionInbox::Put put = inbox_.put(envelope);
    if (put.replaced) {
        ++counters_->envelopesDropped;
    }
    if (put.isNews) {
        round_->add(weak_from_this());
    }
}

void UnixSocketConnection::deliver()
{
    if (socket_) {
        inbox_.collected();
        write();
    }
}

/// Serves the next complete line, or waits for one. The one place that decides to take input.
void UnixSocketConnection::proceed()
{
    if (!socket_ || serving_ || ending_ || waitingReadable_ || !mayTakeRequest()) {
        return;
    }
    const bool areTooMany = surroundings_.heldInput > heldInputOfAllLimit;
    if (const auto line = framer_.next()) {
        if (areTooMany && line->size() > heldInputAlwaysGranted) {
            return refuse(JsonRpcCode::Unavailable, tooManyLongLines);
        }
        return dispatch(*line);
    }
    accountInput();
    if (framer_.overflowed()) {
        refuse(JsonRpcCode::InvalidRequest, "a line is longer than 1048576 bytes; the connection is closed");
    } else if (accountedInput_ > heldInputAlwaysGranted && surroundings_.heldInput > heldInputOfAllLimit) {
        refuse(JsonRpcCode::Unavailable, tooManyLongLines);
    } else {
        waitReadable();
    }
}

void UnixSocketConnection::dispatch(std::string_view line)
{
    serving_ = true;
    ++counters_->requests;
    if (line.size() > shortLine) {
        dispatchLater(line);
    } else {
        carryOut(line, {});
    }
}

void UnixSocketConnection::dispatchLater(std::string_view line)
{
    longLine_ = std::make_shared<const std::string>(line);
    surroundings_.longRequests->enter(
        [weak = weak_from_this(), executor = socket_->get_executor()](const LongRequests::Turn& turn) {
            asio::post(executor, [weak, turn] {
                if (const auto self = weak.lock(); self && self->socket_) {
                    self->dispatchAside(turn);
                }
            });
        });
}

/// A long line takes up to a tenth of a second to read and to check. Until the second thread has called the exported object, that
/// is not told of the end.
void UnixSocketConnection::dispatchAside(const LongRequests::Turn& turn)
{
    ++aside_;
    const auto self = shared_from_this();
    surroundings_.aside([self, line = std::exchange(longLine_, nullptr), turn] { self->carryOut(*line, turn); },
        [self] {
            if (--self->aside_ == 0 && self->ending_) {
                self->tellEnded();
            }
        });
}

/// Any of the two threads.
void UnixSocketConnection::carryOut(std::string_view line, const LongRequests::Turn& turn)
{
    const auto exported = exported_; // lives through the call whatever the call does
    const Caller caller(peer_, weak_from_this());
    surroundings_.dispatcher.dispatch(line, *exported, caller, [weak = weak_from_this(), turn](JsonRpcOutcome outcome) {
        outcome.turn = turn;
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
    auto outcome = inbox_.takeOutcome();
    write(); // envelopes that a call sent come before its answer
    if (outcome && socket_) {
        finish(std::move(*outcome));
    }
}

void UnixSocketConnection::finish(JsonRpcOutcome outcome)
{
    if (outcome.refused) {
        ++counters_->badRequests;
    }
    if (!outcome.answer || isShort(*outcome.answer)) {
        return answered(outcome.answer ? encode(*outcome.answer) : std::string());
    }
    const auto answer = std::make_shared<JsonRpcAnswer>(std::move(*outcome.answer));
    const auto line = std::make_shared<std::string>();
    surroundings_.aside(
        [answer, line, turn = std::move(outcome.turn)]() mutable {
            *line = encode(*answer);
            answer->result = nullptr; // letting go of it takes as long
            turn.reset();
        },
        [self = shared_from_this(), line] { self->answered(*line); });
}

/// The request is served; its answer, if it gets one, is this line.
void UnixSocketConnection::answered(std::string_view line)
{
    if (!socket_) {
        return;
    }
    serving_ = false;
    if (!line.empty()) {
        output_.addAnswer(line);
        accountOutput();
        write();
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

void UnixSocketConnection::refuse(JsonRpcCode code, const char* why)
{
    ++counters_->requests;
    ++counters_->badRequests;
    endOfInput();
    output_.addAnswer(encode({nullptr, nullptr, JsonRpcFailure{code, why}}));
    accountOutput();
    write();
}

void UnixSocketConnection::turnAway(const char* why)
{
    refuse(JsonRpcCode::Unavailable, why);
    close(); // what its socket did not take at once is lost: it costs nothing from here on
}

void UnixSocketConnection::endOfInput()
{
    ending_ = true;
    framer_.discard();
    accountInput();
    if (aside_ == 0) {
        tellEnded();
    }
}

void UnixSocketConnection::tellEnded()
{
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
