// SPDX-License-Identifier: Apache-2.0
#include "exporter/HttpAnswers.h"

#include "base/Text.h"
#include "exporter/Negotiation.h"
#include "wire/Version.h"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace meridal {

namespace {

/// What the library asks of a stream differs by release: each of these overrides what there is.
class AnyStream : public httplib::Stream {
public:
    // NOLINTBEGIN(modernize-use-override,readability-identifier-naming)
    virtual bool is_writable() const { return true; }
    virtual bool wait_readable() const { return true; }
    virtual bool wait_writable() const { return true; }
    virtual time_t duration() const { return 0; }
    // NOLINTEND(modernize-use-override,readability-identifier-naming)
};

/// Gives the library a request that is there already and takes what it writes.
class MemoryStream final : public AnyStream {
public:
    explicit MemoryStream(std::string_view request) : request_(request) { }
    std::string takeWritten() { return std::move(written_); }

    ssize_t read(char* into, std::size_t size) override
    {
        const std::size_t count = request_.copy(into, size);
        request_.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* bytes, std::size_t size) override
    {
        written_.append(bytes, size);
        return static_cast<ssize_t>(size);
    }
    bool is_readable() const override { return !request_.empty(); }
    // Who is at the other end is nobody's question.
    void get_remote_ip_and_port(std::string& /*address*/, int& /*port*/) const override { }
    void get_local_ip_and_port(std::string& /*address*/, int& /*port*/) const override { }
    socket_t socket() const override { return -1; }

private:
    std::string_view request_;
    std::string written_;
};

/// All headers of a name as one.
std::string joined(const httplib::Request& request, const char* name)
{
    std::string all;
    const auto [begin, end] = request.headers.equal_range(name);
    for (auto header = begin; header != end; ++header) {
        all += all.empty() ? "" : ",";
        all += header->second;
    }
    return all;
}

bool hasBody(const httplib::Request& request)
{
    const std::string length = joined(request, "Content-Length");
    return request.has_header("Transfer-Encoding")
        || std::any_of(length.begin(), length.end(), [](char c) { return c != '0'; });
}

SharedText shared(std::string text) { return std::make_shared<const std::string>(std::move(text)); }

constexpr const char* plainText = "text/plain; charset=utf-8";

} // namespace

/// The library's server, which never listens. Each request is in its hands within answer() alone.
class HttpAnswers::Library final : public httplib::Server {
public:
    Library()
        : home_(shared(
            fmt::format("<!DOCTYPE html>\n<title>meridal-exporter</title>\n<h1>meridal-exporter {}</h1>\n"
                        "<p>The figures of this machine's meridald for Prometheus: <a href=\"/metrics\">/metrics</a>. "
                        "There is nothing else here.</p>\n",
                releaseVersion())))
        , notHere_(shared("Nothing here but /metrics\n"))
        , noMethod_(shared("Only GET and HEAD\n"))
    {
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            route(request, response);
            return HandlerResponse::Handled;
        });
        set_post_routing_handler([this](const httplib::Request&, httplib::Response& response) { finish(response); });
    }

    HttpAnswer answer(std::string_view request, MetricsPage* page)
    {
        answer_ = {};
        answer_.isLast = true; // where the library does not even get so far as to look()
        page_ = page;
        isHead_ = false;
        MemoryStream stream(request);
        try {
            process(*this, stream, [this](httplib::Request& seen) { look(seen); });
        } catch (const std::exception&) { // of what the library makes of a request: no client is to end the program
            answer_ = {};
            answer_.isLast = true;
            return std::exchange(answer_, {});
        }
        answer_.head = stream.takeWritten();
        if (isHead_) {
            answer_.body.reset();
        }
        return std::exchange(answer_, {});
    }

private:
    /// Its parameters differ by release, too.
    template <typename Self, typename Look>
    static void process(Self& self, httplib::Stream& stream, const Look& look)
    {
        bool isClosed = false;
        if constexpr (requires { self.process_request(stream, false, isClosed, look); }) {
            self.process_request(stream, false, isClosed, look);
        } else {
            self.process_request(stream, "", 0, "", 0, false, isClosed, look);
        }
    }

    /// Sees the request before the library acts on it, and takes out what that must not act on: a body is not read, ranges (of
    /// which a request may ask for hundreds, each with all of the text) are not made, and what is compressed is so for all who
    /// ask. Bodies are written by who holds the socket: the library is to write a head.
    void look(httplib::Request& request)
    {
        method_ = std::exchange(request.method, "HEAD");
        isHead_ = method_ == "HEAD";
        format_ = formatFor(joined(request, "Accept"));
        takesGzip_ = takesGzip(joined(request, "Accept-Encoding"));
        answer_.isLast = request.version != "HTTP/1.1" || hasBody(request)
            || lowercase(joined(request, "Connection")).find("close") != std::string::npos;
        request.ranges.clear();
        for (const char* name :
            {"Accept-Encoding", "Connection", "Content-Length", "Expect", "Range", "Transfer-Encoding", "Upgrade"}) {
            request.headers.erase(name);
        }
    }

    void route(const httplib::Request& request, httplib::Response& response)
    {
        if (method_ != "GET" && method_ != "HEAD") {
            answer_.isLast = true;
            response.set_header("Allow", "GET, HEAD");
            give(response, 405, plainText, noMethod_);
        } else if (request.path == "/metrics") {
            giveMetrics(response);
        } else if (request.path == "/") {
            give(response, 200, "text/html; charset=utf-8", home_);
        } else {
            give(response, 404, plainText, notHere_);
        }
    }

    void giveMetrics(httplib::Response& response)
    {
        if (!page_) {
            answer_.wantsMetrics = true;
            response.status = 200;
            return;
        }
        const SharedText compressed = takesGzip_ ? page_->gzip(format_) : nullptr;
        if (compressed) {
            response.set_header("Content-Encoding", "gzip");
        }
        response.set_header("Vary", "Accept, Accept-Encoding");
        give(response, 200, std::string(contentType(format_)).c_str(), compressed ? compressed : page_->text(format_));
    }

    void give(httplib::Response& response, int status, const char* type, const SharedText& body)
    {
        response.status = status;
        response.set_header("Content-Type", type);
        response.set_header("Content-Length", std::to_string(body->size()));
        response.set_header("Accept-Ranges", "none");
        answer_.body = body;
    }

    /// The library promises to keep the connection as long as it would.
    void finish(httplib::Response& response) const
    {
        response.headers.erase("Keep-Alive");
        response.headers.erase("Connection");
        if (answer_.isLast) {
            response.set_header("Connection", "close");
        }
    }

    const SharedText home_;
    const SharedText notHere_;
    const SharedText noMethod_;

    // of the request that is being answered
    MetricsPage* page_ = nullptr;
    std::string method_;
    bool isHead_ = false;
    MetricsFormat format_ = MetricsFormat::Prometheus;
    bool takesGzip_ = false;
    HttpAnswer answer_;
};

HttpAnswers::HttpAnswers() : library_(std::make_unique<Library>()) { }

HttpAnswers::~HttpAnswers() = default;

HttpAnswer HttpAnswers::answer(std::string_view request, MetricsPage* page) { return library_->answer(request, page); }

} // namespace meridal
