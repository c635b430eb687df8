// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exporter/MetricsPage.h"

#include <memory>
#include <string>
#include <string_view>

namespace meridal {

/// What goes back to a client.
struct HttpAnswer {
    std::string head;          ///< all up to the body
    SharedText body;           ///< null: none
    bool isLast = false;       ///< whether the connection ends with it
    bool wantsMetrics = false; ///< nothing of the above yet: the request is for metrics, and there were none at hand
};

/// Requests of HTTP/1.1 and what they get. Reading one and writing the head of its answer is a library's (cpp-httplib); no byte of
/// it comes from or goes to a socket here, so no client can keep it waiting.
class HttpAnswers {
public:
    HttpAnswers();
    ~HttpAnswers();
    HttpAnswers(const HttpAnswers&) = delete;
    HttpAnswers& operator=(const HttpAnswers&) = delete;

    /// Answers a request without body, whole with the empty line at its end. `page` may be null.
    HttpAnswer answer(std::string_view request, MetricsPage* page);

private:
    class Library;
    std::unique_ptr<Library> library_;
};

} // namespace meridal
