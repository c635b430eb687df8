// SPDX-License-Identifier: Apache-2.0
#include "exporter/ExporterOptions.h"
#include "exporter/HttpServer.h"
#include "exporter/SharedMetrics.h"

#include <fmt/format.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <unistd.h>
#include <variant>

namespace {

using namespace meridal;

constexpr int firstInherited = 3; // sd_listen_fds(3)
constexpr const char* usualPlace = "127.0.0.1:9669";

int numberInEnvironment(const char* name)
{
    const char* text = std::getenv(name);
    int number = 0;
    if (text) {
        std::from_chars(text, text + std::strlen(text), number);
    }
    return number;
}

/// Says where the metrics are, or why not.
bool tell(const Result<std::string>& place)
{
    fmt::print(stderr, "{}{}\n", place ? "Serving /metrics at " : "", place ? *place : place.error().message);
    return place.has_value();
}

/// The service manager's sockets, and those that the command line names; the usual one where there is neither.
bool listen(HttpServer& server, const ExporterOptions& options)
{
    const int inherited = numberInEnvironment("LISTEN_PID") == ::getpid() ? numberInEnvironment("LISTEN_FDS") : 0;
    bool isServing = true;
    for (int descriptor = firstInherited; descriptor < firstInherited + inherited; ++descriptor) {
        isServing = tell(server.adopt(descriptor)) && isServing;
    }
    for (const std::string& place : options.listen) {
        isServing = tell(server.listen(place)) && isServing;
    }
    if (inherited == 0 && options.listen.empty()) {
        isServing = tell(server.listen(usualPlace));
    }
    return isServing;
}

int serve(const ExporterOptions& options)
{
    EventLoop loop;
    SharedMetrics metrics(loop, options.socketPath, options.metrics);
    HttpServer server(loop, metrics);
    const auto interrupted = loop.watchSignals({SIGINT, SIGTERM}, [&loop] { loop.stop(); });
    if (!listen(server, options)) {
        return 1;
    }
    loop.run();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // a client that leaves shows as a failed write
    try {
        const auto parsed = parseExporterOptions(argc, argv);
        const int* status = std::get_if<int>(&parsed);
        return status ? *status : serve(std::get<ExporterOptions>(parsed));
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return 1;
    }
}
