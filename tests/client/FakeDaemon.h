// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

namespace meridal {

/// The daemon's end of a real socket, for one client at a time; what it answers is up to the test.
class FakeDaemon {
public:
    using Handler = std::function<void(const std::string& method, const Value& request)>;

    FakeDaemon(asio::io_context& context, const std::string& path, Handler handler)
        : acceptor_(context, asio::local::stream_protocol::endpoint(path))
        , client_(context)
        , path_(path)
        , handler_(std::move(handler))
    {
        accept();
    }
    ~FakeDaemon() { std::filesystem::remove(path_); }
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    void send(const std::string& bytes)
    {
        std::error_code clientLeft;
        asio::write(client_, asio::buffer(bytes), clientLeft);
    }
    void answer(const Value& request, const Value& result)
    {
        send(serialise({{"jsonrpc", "2.0"}, {"id", request.at("id")}, {"result", result}}) + '\n');
    }
    void refuse(const Value& request, int code, const std::string& message)
    {
        const Value error = {{"code", code}, {"message", message}};
        send(serialise({{"jsonrpc", "2.0"}, {"id", request.at("id")}, {"error", error}}) + '\n');
    }
    void push(const Dictionary& envelope)
    {
        const Value message = {{"jsonrpc", "2.0"}, {"method", "daemonResponse:"}, {"params", Value::array({envelope})}};
        send(serialise(message) + '\n');
    }
    /// Ends the client's connection, as a daemon that stops does.
    void hangUp()
    {
        std::error_code ignored;
        client_.close(ignored);
    }

private:
    void accept()
    {
        acceptor_.async_accept([this](std::error_code error, asio::local::stream_protocol::socket client) {
            if (!error) {
                client_ = std::move(client);
                input_.clear();
                read();
                accept();
            }
        });
    }

    void read()
    {
        asio::async_read_until(
            client_, asio::dynamic_buffer(input_), '\n', [this](std::error_code error, std::size_t size) {
                if (error) {
                    return;
                }
                const Value request = Value::parse(input_.substr(0, size));
                input_.erase(0, size);
                handler_(request.at("method"), request);
                if (client_.is_open()) {
                    read();
                }
            });
    }

    asio::local::stream_protocol::acceptor acceptor_;
    asio::local::stream_protocol::socket client_;
    std::string path_;
    std::string input_;
    Handler handler_;
};

} // namespace meridal
