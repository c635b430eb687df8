// SPDX-License-Identifier: Apache-2.0
#include "client/DaemonClient.h"

#include "wire/LineFramer.h"

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>

#include <array>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

/// No envelope of an honest daemon comes near it; it bounds what a broken one can make us hold.
constexpr std::size_t longestLine = 64U << 20U;

} // namespace

struct DaemonClient::Connection {
    explicit Connection(asio::io_context& context) : socket(context) { }

    asio::local::stream_protocol::socket socket;
    LineFramer lines{longestLine};
    std::array<char, 65'536> chunk{};
    std::string waiting; ///< calls not yet handed to the kernel
    std::string sending; ///< calls being handed to it; empty when none are
};

DaemonClient::DaemonClient(EventLoop& loop, std::string socketPath)
    : loop_(loop), socketPath_(std::move(socketPath)) { }

DaemonClient::~DaemonClient() = default;

void DaemonClient::connect(std::function<void(Result<void>)> done)
{
    const auto connection = std::make_shared<Connection>(loop_.context());
    connection_ = connection;
    auto finish = lifetime_.guard([this, connection, done = std::move(done)](std::error_code error) {
        if (error) {
            connection_.reset();
            done(unexpected(ErrorCode::Unavailable, error.message()));
            return;
        }
        opened(connection, done);
    });
    try {
        connection->socket.async_connect(asio::local::stream_protocol::endpoint(socketPath_), finish);
    } catch (const std::system_error& error) { // the path does not fit a socket address
        asio::post(loop_.context(), [finish, code = error.code()]() mutable { finish(code); });
    }
}

void DaemonClient::opened(const ConnectionPtr& connection, const std::function<void(Result<void>)>& done)
{
    connected_ = true;
    read(connection);
    done({});
    if (connected_ && events_.connected) {
        events_.connected();
    }
}

void DaemonClient::reconnect()
{
    retry_ = loop_.after(reconnectInterval_, [this] {
        connect([this](const Result<void>& outcome) {
            if (!outcome) {
                reconnect();
            }
        });
    });
}

void DaemonClient::call(const std::string& method, const Value& parameters, Reply reply)
{
    if (!connected_) {
        reply(unexpected(ErrorCode::Unavailable, "not connected to the daemon"));
        return;
    }
    const std::int64_t id = ++lastId_;
    auto timeout = loop_.after(timeout_, [this, id] { expire(id); });
    pending_.emplace(id, Pending{std::move(reply), std::move(timeout)});
    connection_->waiting += encodeCall(id, method, parameters);
    if (connection_->sending.empty()) {
        write(connection_);
    }
}

void DaemonClient::write(const ConnectionPtr& connection)
{
    connection->sending = std::exchange(connection->waiting, {});
    asio::async_write(connection->socket, asio::buffer(connection->sending),
        lifetime_.guard([this, connection](std::error_code error, std::size_t) {
            connection->sending.clear();
            // A write that fails is left to the read beside it, which first delivers what the daemon said in parting.
            if (!error && !connection->waiting.empty()) {
                write(connection);
            }
        }));
}

void DaemonClient::read(const ConnectionPtr& connection)
{
    connection->socket.async_read_some(
        asio::buffer(connection->chunk), lifetime_.guard([this, connection](std::error_code error, std::size_t size) {
            if (connection != connection_) {
                return;
            }
            if (error) {
                lose(connection, "the daemon closed the connection");
                return;
            }
            connection->lines.append({connection->chunk.data(), size});
            takeLines(connection);
            if (connection == connection_) {
                read(connection);
            }
        }));
}

void DaemonClient::takeLines(const ConnectionPtr& connection)
{
    while (const auto line = connection->lines.next()) {
        Incoming message = parseMessage(*line);
        if (auto* answer = std::get_if<Answer>(&message)) {
            answered(std::move(*answer));
        } else if (const auto* envelope = std::get_if<Dictionary>(&message); envelope && events_.envelope) {
            events_.envelope(*envelope);
        } else if (const auto* changes = std::get_if<Notification>(&message); changes && events_.changed) {
            events_.changed(*changes);
        }
    }
    if (connection->lines.overflowed()) {
        lose(connection, fmt::format("the daemon sent a line of over {} MiB", longestLine >> 20U));
    }
}

void DaemonClient::answered(Answer answer)
{
    // A refusal that names no call is about a line the daemon could not read: the oldest one it has not answered.
    const auto found = answer.id ? pending_.find(*answer.id) : pending_.begin();
    if (found == pending_.end()) {
        return;
    }
    const Pending pending = std::move(found->second);
    pending_.erase(found);
    pending.reply(std::move(answer.result));
}

void DaemonClient::expire(std::int64_t id)
{
    const auto found = pending_.find(id);
    if (found == pending_.end()) {
        return;
    }
    const Pending pending = std::move(found->second);
    pending_.erase(found);
    pending.reply(
        unexpected(ErrorCode::Unavailable, fmt::format("the daemon did not answer within {:.3g} s", timeout_)));
}

void DaemonClient::lose(const ConnectionPtr& connection, const std::string& why)
{
    std::error_code ignored;
    connection->socket.close(ignored);
    connection_.reset();
    connected_ = false;
    if (reconnectInterval_ > 0) {
        reconnect();
    }
    const auto pending = std::exchange(pending_, {});
    for (const auto& entry : pending) {
        entry.second.reply(unexpected(ErrorCode::Unavailable, why));
    }
    if (events_.disconnected) {
        events_.disconnected({ErrorCode::Unavailable, why});
    }
}

} // namespace meridal
