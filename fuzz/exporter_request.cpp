// SPDX-License-Identifier: Apache-2.0
#include "exporter/HttpAnswers.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace meridal;

namespace {

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

} // namespace

/// What a scraper may send up to the empty line. Whatever it is gets one head, which tells the length of its body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static HttpAnswers answers;
    static MetricsPage page(MetricsSnapshot{}, MetricsOptions{});
    constexpr std::size_t longest = 8192;
    const std::string request(reinterpret_cast<const char*>(data), size < longest ? size : longest);
    const HttpAnswer first = answers.answer(request, nullptr);
    const HttpAnswer answer = first.wantsMetrics ? answers.answer(request, &page) : first;
    require(!answer.wantsMetrics && (!answer.head.empty() || answer.isLast));
    const std::string_view head = answer.head;
    require(head.empty() || (head.rfind("HTTP/1.1 ", 0) == 0 && head.find("\r\n\r\n") == head.size() - 4));
    require(!answer.body
        || head.find("Content-Length: " + std::to_string(answer.body->size()) + "\r\n") != std::string_view::npos);
    return 0;
}
