// SPDX-License-Identifier: Apache-2.0
#include "exporter/HttpServer.h"

#include <asio/basic_socket_acceptor.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

using Protocol = asio::generic::stream_protocol;
using Acceptor = asio::basic_socket_acceptor<Protocol>;

constexpr std::size_t mostConnections = 256;
constexpr std::size_t mostOfAddress = 128;
constexpr int keptByKernel =
    64 << 10; // bytes on the way to a client that does not read; of itself it would take megabytes
constexpr double acceptAgain = 0.5; // s after a failure, as when descriptors have run out
constexpr std::string_view unixPrefix = "unix:";

std::optional<asio::ip::tcp::endpoint> asTcp(const Protocol::endpoint& endpoint)
{
    const int family = endpoint.protocol().family();
    asio::ip::tcp::endpoint tcp;
    if ((family != asio::ip::tcp::v4().family() && family != asio::ip::tcp::v6().family())
        || endpoint.size() > tcp.capacity()) {
        return std::nullopt;
    }
    std::memcpy(tcp.data(), endpoint.data(), endpoint.size());
    return tcp;
}

/// Where it can be reached, as --listen takes it.
std::string describe(const Protocol::endpoint& endpoint)
{
    if (const auto tcp = asTcp(endpoint)) {
        const std::string address = tcp->address().to_string();
        return fmt::format(fmt::runtime(tcp->address().is_v6() ? "[{}]:{}" : "{}:{}"), address, tcp->port());
    }
    asio::local::stream_protocol::endpoint local;
    if (endpoint.size() <= local.capacity()) {
        std::memcpy(local.data(), endpoint.data(), endpoint.size());
        local.resize(endpoint.size());
    }
    return fmt::format("{}{}", unixPrefix, local.path());
}

std::optional<Protocol::endpoint> parseTcp(const std::string& where)
{
    const std::size_t colon = where.rfind(':');
    if (colon == std::string::npos || colon + 1 == where.size()) {
        return std::nullopt;
    }
    std::uint16_t port = 0;
    const char* const end = where.data() + where.size();
    const auto [stop, refused] = std::from_chars(where.data() + colon + 1, end, port);
    if (refused != std::errc() || stop != end) {
        return std::nullopt;
    }
    std::string address = where.substr(0, colon);
    if (address.size() > 2 && address.front() == '[' && address.back() == ']') {
        address = address.substr(1, address.size() - 2);
    } else if (address.find(':') != std::string::npos) {
        return std::nullopt; // "::1:9669" could be an address alone
    }
    std::error_code unknown;
    const auto parsed = asio::ip::make_address(address, unknown);
    return unknown ? std::nullopt : std::optional<Protocol::endpoint>(asio::ip::tcp::endpoint(parsed, port));
}

std::optional<Protocol::endpoint> parsePlace(const std::string& where)
{
    if (where.rfind(unixPrefix, 0) != 0) {
        return parseTcp(where);
    }
    const std::string path = where.substr(unixPrefix.size());
    const bool fits =
        path.size() > 1 && path.size() < asio::local::stream_protocol::endpoint().capacity() - sizeof(short);
    return path.rfind('/', 0) == 0 && fits
        ? std::optional<Protocol::endpoint>(asio::local::stream_protocol::endpoint(path))
        : std::nullopt;
}

/// A socket file that nobody listens at.
void removeDeadSocket(EventLoop& loop, const std::string& path, const Protocol::endpoint& endpoint)
{
    std::error_code refused;
    if (!std::filesystem::is_socket(path, refused)) {
        return;
    }
    HttpConnection::Socket visitor(loop.context());
    visitor.connect(endpoint, refused);
    if (refused == asio::error::connection_refused) {
        std::filesystem::remove(path, refused);
    }
}

} // namespace

struct HttpServer::Listener {
    explicit Listener(EventLoop& loop) : acceptor(loop.context()) { }

    Acceptor acceptor;
    Protocol::endpoint peer; ///< of the connection that comes next
    std::string path;        ///< of a socket file that is ours to remove
    std::unique_ptr<Timer> again;
};

HttpServer::HttpServer(EventLoop& loop, SharedMetrics& metrics) : loop_(loop), metrics_(metrics) { }

HttpServer::~HttpServer()
{
    while (!connections_.empty()) {
        (*connections_.begin())->close();
    }
    std::error_code ignored;
    for (const Listener& listener : listeners_) {
        if (!listener.path.empty()) {
            std::filesystem::remove(listener.path, ignored);
        }
    }
}

std::string HttpServer::complaintAbout(const std::string& where)
{
    return parsePlace(where) ? "" : "neither ADDRESS:PORT nor unix:/PATH: " + where;
}

Result<std::string> HttpServer::listen(const std::string& where)
{
    const auto endpoint = parsePlace(where);
    if (!endpoint) {
        return unexpected(ErrorCode::InvalidArgument, complaintAbout(where));
    }
    const bool isFile = where.rfind(unixPrefix, 0) == 0;
    const std::string path = isFile ? where.substr(unixPrefix.size()) : "";
    Listener listener(loop_);
    std::error_code refused;
    if (isFile) {
        removeDeadSocket(loop_, path, *endpoint);
    }
    listener.acceptor.open(endpoint->protocol(), refused);
    if (!refused && !isFile) {
        listener.acceptor.set_option(asio::socket_base::reuse_address(true), refused);
    }
    if (!refused) {
        listener.acceptor.bind(*endpoint, refused);
    }
    if (!refused && isFile) {
        listener.path = path;
        using std::filesystem::perms;
        constexpr auto everybody = perms::owner_read | perms::owner_write | perms::group_read | perms::group_write
            | perms::others_read | perms::others_write;
        std::filesystem::permissions(path, everybody, refused); // as with a port of this machine
    }
    if (!refused) {
        listener.acceptor.listen(asio::socket_base::max_listen_connections, refused);
    }
    if (refused) {
        return unexpected(ErrorCode::Unavailable, fmt::format("cannot listen at {}: {}", where, refused.message()));
    }
    listeners_.push_back(std::move(listener));
    accept(listeners_.back());
    return describe(listeners_.back().acceptor.local_endpoint());
}

Result<std::string> HttpServer::adopt(int descriptor)
{
    Listener listener(loop_);
    std::error_code refused;
    listener.acceptor.assign(Protocol(0, 0), descriptor, refused);
    const auto endpoint = refused ? Protocol::endpoint() : listener.acceptor.local_endpoint(refused);
    if (refused) {
        return unexpected(
            ErrorCode::Unavailable, fmt::format("cannot listen at descriptor {}: {}", descriptor, refused.message()));
    }
    listeners_.push_back(std::move(listener));
    accept(listeners_.back());
    return describe(endpoint);
}

void HttpServer::accept(Listener& listener)
{
    listener.acceptor.async_accept(
        listener.peer, [this, &listener](std::error_code error, HttpConnection::Socket socket) {
            if (error == asio::error::operation_aborted) {
                return; // the server has gone
            }
            if (error) {
                listener.again = loop_.after(acceptAgain, [this, &listener] { accept(listener); });
                return;
            }
            const auto tcp = asTcp(listener.peer);
            welcome(std::move(socket), tcp ? tcp->address().to_string() : "");
            accept(listener);
        });
}

void HttpServer::welcome(HttpConnection::Socket socket, const std::string& address)
{
    makeRoom(address);
    std::error_code ignored;
    socket.set_option(asio::socket_base::send_buffer_size(keptByKernel), ignored);
    if (!address.empty()) {
        socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    }
    const auto connection = std::make_shared<HttpConnection>(loop_, answers_, metrics_, std::move(socket), address,
        [this](const std::shared_ptr<HttpConnection>& ended) { connections_.erase(ended); });
    connections_.insert(connection);
    connection->start();
}

void HttpServer::makeRoom(const std::string& address)
{
    const auto isOfAddress = [&](const auto& connection) { return connection->address() == address; };
    const auto count = std::count_if(connections_.begin(), connections_.end(), isOfAddress);
    const bool isOver = static_cast<std::size_t>(count) >= mostOfAddress;
    if (!isOver && connections_.size() < mostConnections) {
        return;
    }
    std::shared_ptr<HttpConnection> leaving;
    for (const auto& connection : connections_) {
        const auto rank = [](const auto& of) { return std::tuple(of->state(), of->since()); };
        if ((!isOver || isOfAddress(connection)) && (!leaving || rank(connection) < rank(leaving))) {
            leaving = connection;
        }
    }
    leaving->close();
}

} // namespace meridal
