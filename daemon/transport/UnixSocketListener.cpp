// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/UnixSocketListener.h"

#include "base/ThreadPool.h"
#include "daemon/transport/UnixSocketConnection.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <fmt/format.h>

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>
#include <utility>

namespace meridal {

namespace {

/// How long accepting rests when the system has no descriptor or memory left and no connection ends meanwhile.
constexpr std::chrono::milliseconds acceptRest(100);

Unexpected failure(std::string_view what, const std::filesystem::path& path, const std::error_code& error)
{
    const bool denied = error == std::errc::permission_denied || error == std::errc::operation_not_permitted
        || error == std::errc::read_only_file_system;
    return unexpected(denied ? ErrorCode::NotPermitted : ErrorCode::Unavailable,
        fmt::format("{} {}: {}", what, path.string(), error.message()));
}

/// Makes the folder that the socket lives in, open to everyone whatever the umask. One that is there stays as it is.
Result<void> makeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    if (folder.empty() || std::filesystem::is_directory(folder, error)) {
        return {};
    }
    std::filesystem::create_directories(folder, error);
    if (!error) {
        using std::filesystem::perms;
        std::filesystem::permissions(folder,
            perms::owner_all | perms::group_read | perms::group_exec | perms::others_read | perms::others_exec, error);
    }
    return error ? Result<void>(failure("cannot make the folder", folder, error)) : Result<void>();
}

/// Makes way for the socket: removes a dead daemon's, and nothing else.
Result<void> removeStaleSocket(const std::filesystem::path& path)
{
    std::error_code error;
    const auto status = std::filesystem::symlink_status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return {};
    }
    if (status.type() != std::filesystem::file_type::socket) {
        return unexpected(ErrorCode::InvalidArgument, fmt::format("{} exists and is not a socket", path.string()));
    }
    std::filesystem::remove(path, error);
    return error ? Result<void>(failure("cannot remove the stale socket", path, error)) : Result<void>();
}

/// Signals are for the main thread: this keeps them from the threads that are started in its life.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

} // namespace

/// The listener's innards. All but the constructor, bind(), adopt(), run(), stopAccepting() and the destructor belong to its
/// thread.
class UnixSocketListener::Server {
public:
    Server(ListenerDelegate& delegate, NamedMethods* namedMethods, Queue& mainQueue)
        : delegate_(delegate)
        , dispatcher_(namedMethods, mainQueue)
        , round_(std::make_shared<EnvelopeRound>(mainQueue, io_))
    {
    }
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    Result<void> bind(const std::filesystem::path& path);
    Result<void> adopt(int descriptor);
    void run();
    void stopAccepting();
    const TransportCounters& counters() const { return *counters_; }

private:
    using Protocol = asio::local::stream_protocol;

    void accept();
    void accepted(const asio::error_code& error, Protocol::socket socket);
    void restThenAccept();
    void welcome(Protocol::socket socket);
    void connectionClosed(const UnixSocketConnection& connection);
    void aside(std::function<void()> work, std::function<void()> after);
    void shutDown();

    ListenerDelegate& delegate_;
    JsonRpcDispatcher dispatcher_;
    std::shared_ptr<TransportCounters> counters_ = std::make_shared<TransportCounters>();
    asio::io_context io_{1};
    std::shared_ptr<EnvelopeRound> round_;
    ConnectionSurroundings surroundings_{dispatcher_, counters_, round_,
        [this](const UnixSocketConnection& connection) { connectionClosed(connection); },
        [this](std::function<void()> work, std::function<void()> after) { aside(std::move(work), std::move(after)); },
        std::make_shared<LongRequests>(), {}, 0, 0};
    asio::executor_work_guard<asio::io_context::executor_type> work_{io_.get_executor()};
    Protocol::acceptor acceptor_{io_};
    asio::steady_timer restTimer_{io_};
    std::unordered_map<const UnixSocketConnection*, std::shared_ptr<UnixSocketConnection>> connections_;
    std::filesystem::path path_;  // of the socket file that we made
    struct stat socketFile_ = {}; // as we made it
    bool resting_ = false;
    bool shuttingDown_ = false;
    std::thread thread_;
    ThreadPool second_{1}; // for what is long
};

UnixSocketListener::Server::~Server()
{
    round_->close();
    if (thread_.joinable()) {
        asio::post(io_, [this] { shutDown(); });
        thread_.join(); // which has waited for the second one's work
    }
    second_.close();
    struct stat found = {};
    const bool ours = socketFile_.st_ino != 0 && lstat(path_.c_str(), &found) == 0 && found.st_ino == socketFile_.st_ino
        && found.st_dev == socketFile_.st_dev;
    if (ours) {
        unlink(path_.c_str());
    }
}

Result<void> UnixSocketListener::Server::bind(const std::filesystem::path& path)
{
    path_ = path;
    if (path_.string().size() >= sizeof(sockaddr_un::sun_path)) {
        return unexpected(ErrorCode::InvalidArgument,
            fmt::format("{} is too long for a socket; at most {} bytes are possible", path_.string(),
                sizeof(sockaddr_un::sun_path) - 1));
    }
    if (auto made = makeFolder(path_.parent_path()); !made) {
        return made;
    }
    if (auto removed = removeStaleSocket(path_); !removed) {
        return removed;
    }
    asio::error_code error;
    acceptor_.open(Protocol(), error);
    if (!error) {
        fcntl(acceptor_.native_handle(), F_SETFD, FD_CLOEXEC);
        acceptor_.bind(Protocol::endpoint(path_.string()), error);
    }
    if (!error) {
        lstat(path_.c_str(), &socketFile_);
        // Before listen, so that nobody can be turned away by the umask's idea of the mode.
        using std::filesystem::perms;
        std::filesystem::permissions(path_,
            perms::owner_read | perms::owner_write | perms::group_read | perms::group_write | perms::others_read
                | perms::others_write,
            error);
    }
    if (!error) {
        acceptor_.listen(asio::socket_base::max_listen_connections, error);
    }
    return error ? Result<void>(failure("cannot listen on", path_, error)) : Result<void>();
}

Result<void> UnixSocketListener::Server::adopt(int descriptor)
{
    asio::error_code error;
    acceptor_.assign(Protocol(), descriptor, error);
    if (error) {
        close(descriptor);
        return failure("cannot accept at", "the socket that was handed over", error);
    }
    return {};
}

void UnixSocketListener::Server::stopAccepting()
{
    asio::post(io_, [this] {
        asio::error_code ignored;
        acceptor_.close(ignored);
        restTimer_.cancel();
    });
}

void UnixSocketListener::Server::run()
{
    accept();
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { io_.run(); });
}

void UnixSocketListener::Server::accept()
{
    acceptor_.async_accept(
        [this](const asio::error_code& error, Protocol::socket socket) { accepted(error, std::move(socket)); });
}

void UnixSocketListener::Server::accepted(const asio::error_code& error, Protocol::socket socket)
{
    if (shuttingDown_) {
        return;
    }
    if (!error) {
        welcome(std::move(socket));
    }
    if (!acceptor_.is_open()) {
        return; // no more are taken
    }
    if (!error) {
        accept();
    } else if (error == asio::error::connection_aborted || error == asio::error::interrupted) {
        accept();
    } else {
        restThenAccept(); // EMFILE, ENFILE, ENOBUFS, ENOMEM: asking again at once would only burn the processor
    }
}

void UnixSocketListener::Server::restThenAccept()
{
    resting_ = true;
    restTimer_.expires_after(acceptRest);
    restTimer_.async_wait([this](const asio::error_code&) {
        if (std::exchange(resting_, false) && acceptor_.is_open()) {
            accept();
        }
    });
}

void UnixSocketListener::Server::welcome(Protocol::socket socket)
{
    ++counters_->acceptedConnections;
    const auto connection = std::make_shared<UnixSocketConnection>(std::move(socket), surroundings_);
    connections_.emplace(connection.get(), connection);
    connection->open();
    if (auto exported = delegate_.shouldAcceptNewConnection(connection)) {
        connection->start(std::move(exported));
    } else {
        connection->turnAway("this user has as many connections as one may have; the connection is closed");
    }
}

/// The loop goes on until what comes after has run, also while it shuts down.
void UnixSocketListener::Server::aside(std::function<void()> work, std::function<void()> after)
{
    second_.post(
        [this, work = std::move(work), after = std::move(after), guard = asio::make_work_guard(io_)]() mutable {
            work();
            work = nullptr; // what it holds is let go of here
            asio::post(io_, std::move(after));
        });
}

void UnixSocketListener::Server::connectionClosed(const UnixSocketConnection& connection)
{
    // It is still on the stack: let it go later.
    if (const auto entry = connections_.find(&connection); entry != connections_.end()) {
        asio::post(io_, [kept = std::move(entry->second)] {});
        connections_.erase(entry);
    }
    if (resting_) {
        restTimer_.cancel(); // there is a free descriptor
    }
}

void UnixSocketListener::Server::shutDown()
{
    shuttingDown_ = true;
    surroundings_.longRequests->close();
    asio::error_code ignored;
    acceptor_.close(ignored);
    restTimer_.cancel();
    while (!connections_.empty()) {
        const auto connection = connections_.begin()->second;
        connection->close();
    }
    work_.reset();
}

Result<std::unique_ptr<UnixSocketListener>> UnixSocketListener::listen(
    const std::filesystem::path& path, ListenerDelegate& delegate, NamedMethods* namedMethods, Queue& mainQueue)
{
    auto server = std::make_unique<Server>(delegate, namedMethods, mainQueue);
    if (auto bound = server->bind(path); !bound) {
        return Unexpected{bound.error()};
    }
    server->run();
    return std::unique_ptr<UnixSocketListener>(new UnixSocketListener(std::move(server)));
}

Result<std::unique_ptr<UnixSocketListener>> UnixSocketListener::adopt(
    int descriptor, ListenerDelegate& delegate, NamedMethods* namedMethods, Queue& mainQueue)
{
    auto server = std::make_unique<Server>(delegate, namedMethods, mainQueue);
    if (auto adopted = server->adopt(descriptor); !adopted) {
        return Unexpected{adopted.error()};
    }
    server->run();
    return std::unique_ptr<UnixSocketListener>(new UnixSocketListener(std::move(server)));
}

UnixSocketListener::UnixSocketListener(std::unique_ptr<Server> server) : server_(std::move(server)) { }

UnixSocketListener::~UnixSocketListener() = default;

void UnixSocketListener::stopAccepting() { server_->stopAccepting(); }

ListenerStatistics UnixSocketListener::statistics() const
{
    const TransportCounters& counters = server_->counters();
    return {.openConnections = counters.openConnections,
        .acceptedConnections = counters.acceptedConnections,
        .requests = counters.requests,
        .badRequests = counters.badRequests,
        .envelopesSent = counters.envelopesSent,
        .envelopesDropped = counters.envelopesDropped};
}

std::uint64_t UnixSocketListener::envelopesEncoded() const { return server_->counters().envelopesEncoded; }

} // namespace meridal
