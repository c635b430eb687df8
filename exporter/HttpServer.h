// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "client/EventLoop.h"
#include "exporter/HttpAnswers.h"
#include "exporter/HttpConnection.h"
#include "exporter/SharedMetrics.h"

#include <list>
#include <memory>
#include <set>
#include <string>

namespace meridal {

/// Serves HTTP on sockets. There are so many connections at most, and a part of them for each address: a new one takes the
/// place of one that waits for its client, the longest first. So whoever connects is served, however many do nothing.
class HttpServer {
public:
    HttpServer(EventLoop& loop, SharedMetrics& metrics);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// "127.0.0.1:9669", "[::1]:9669", "unix:/run/socket"; port 0 is any free one. Answers where it listens now. A socket that
    /// a dead process left at the path makes way.
    Result<std::string> listen(const std::string& where);
    /// Serves a descriptor that listens already.
    Result<std::string> adopt(int descriptor);

    /// Why that is no place to listen at, or nothing.
    static std::string complaintAbout(const std::string& where);

private:
    struct Listener;

    void accept(Listener& listener);
    void welcome(HttpConnection::Socket socket, const std::string& address);
    void makeRoom(const std::string& address);

    EventLoop& loop_;
    SharedMetrics& metrics_;
    HttpAnswers answers_;
    std::list<Listener> listeners_;
    std::set<std::shared_ptr<HttpConnection>> connections_;
};

} // namespace meridal
