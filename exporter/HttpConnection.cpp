// SPDX-License-Identifier: Apache-2.0
#include "exporter/HttpConnection.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <string_view>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

constexpr double requestTime = 10; // s for a request to be there whole, and as long for its answer to be taken
constexpr double idleTime = 75;    // s; those who scrape each minute keep their connection
constexpr double waitingTime = 30; // s; who asks the daemon gives up long before
constexpr double partingTime = 2;  // s
constexpr std::size_t mostDiscarded = 256 << 10;
constexpr std::string_view endOfRequest = "\r\n\r\n";
constexpr const char* tooLong =
    "HTTP/1.1 431 Request Header Fields Too Large\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";

} // namespace

HttpConnection::HttpConnection(
    EventLoop& loop, HttpAnswers& answers, SharedMetrics& metrics, Socket socket, std::string address, Ended ended)
    : loop_(loop)
    , answers_(answers)
    , metrics_(metrics)
    , socket_(std::move(socket))
    , address_(std::move(address))
    , ended_(std::move(ended))
{
}

void HttpConnection::start()
{
    enter(State::Reading, requestTime);
    read();
}

void HttpConnection::close()
{
    if (state_ == State::Closed) {
        return;
    }
    const auto self = shared_from_this(); // nothing else may hold it any more
    state_ = State::Closed;
    patience_.reset();
    std::error_code ignored;
    socket_.close(ignored);
    ended_(self);
}

void HttpConnection::enter(State state, double longest)
{
    state_ = state;
    since_ = loop_.now();
    patience_ = loop_.after(longest, [this] { close(); });
}

void HttpConnection::read()
{
    socket_.async_read_some(asio::buffer(held_.data() + heldSize_, held_.size() - heldSize_),
        [self = shared_from_this()](std::error_code error, std::size_t count) {
            if (error) {
                self->close();
            } else if (self->state_ != State::Closed) {
                self->took(count);
            }
        });
}

void HttpConnection::took(std::size_t count)
{
    if (state_ == State::Idle) {
        enter(State::Reading, requestTime);
    }
    const std::size_t before = heldSize_;
    heldSize_ += count;
    look(before < endOfRequest.size() ? 0 : before - (endOfRequest.size() - 1));
}

/// Looks for the end of a request from there on.
void HttpConnection::look(std::size_t from)
{
    const std::size_t end = std::string_view(held_.data(), heldSize_).find(endOfRequest, from);
    if (end != std::string_view::npos) {
        requestSize_ = end + endOfRequest.size();
        answer();
    } else if (heldSize_ == held_.size()) {
        write({.head = tooLong, .body = nullptr, .isLast = true});
    } else {
        read();
    }
}

void HttpConnection::answer()
{
    const std::string_view request(held_.data(), requestSize_);
    HttpAnswer answer = answers_.answer(request, metrics_.latest().get());
    if (!answer.wantsMetrics) {
        write(std::move(answer));
        return;
    }
    enter(State::Waiting, waitingTime);
    metrics_.ask([weak = weak_from_this()](const std::shared_ptr<MetricsPage>& page) {
        const auto self = weak.lock();
        if (self && self->state_ != State::Closed) {
            self->write(self->answers_.answer({self->held_.data(), self->requestSize_}, page.get()));
        }
    });
}

void HttpConnection::write(HttpAnswer answer)
{
    enter(State::Writing, requestTime);
    answer_ = std::move(answer);
    const std::array<asio::const_buffer, 2> parts = {
        asio::buffer(answer_.head), answer_.body ? asio::buffer(*answer_.body) : asio::const_buffer()};
    asio::async_write(socket_, parts, [self = shared_from_this()](std::error_code error, std::size_t) {
        if (error) {
            self->close();
        } else if (self->state_ != State::Closed) {
            self->wrote();
        }
    });
}

void HttpConnection::wrote()
{
    const bool isLast = answer_.isLast;
    answer_ = {};
    if (isLast) {
        part();
        return;
    }
    std::copy(held_.begin() + static_cast<std::ptrdiff_t>(requestSize_),
        held_.begin() + static_cast<std::ptrdiff_t>(heldSize_), held_.begin());
    heldSize_ -= std::exchange(requestSize_, 0);
    if (heldSize_ > 0) {
        enter(State::Reading, requestTime);
        look(0);
    } else {
        enter(State::Idle, idleTime);
        read();
    }
}

/// What comes yet is read and thrown away for a while: closed with bytes unread, the kernel would tell the client that the
/// connection broke, and that would lose the answer on its way.
void HttpConnection::part()
{
    enter(State::Parting, partingTime);
    std::error_code ignored;
    socket_.shutdown(Socket::shutdown_send, ignored);
    discard();
}

void HttpConnection::discard()
{
    socket_.async_read_some(asio::buffer(held_), [self = shared_from_this()](std::error_code error, std::size_t count) {
        self->discarded_ += count;
        if (error || self->discarded_ > mostDiscarded) {
            self->close();
        } else if (self->state_ != State::Closed) {
            self->discard();
        }
    });
}

} // namespace meridal
