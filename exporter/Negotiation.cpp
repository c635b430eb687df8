// SPDX-License-Identifier: Apache-2.0
#include "exporter/Negotiation.h"

#include "base/Text.h"

#include <optional>
#include <string>

namespace meridal {

namespace {

constexpr int fullWeight = 1000; // "q=1"

/// Cuts off and answers what comes before the next mark, without space around it.
std::string_view nextPart(std::string_view& text, char mark)
{
    const std::size_t end = text.find(mark);
    std::string_view part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    while (!part.empty() && (part.front() == ' ' || part.front() == '\t')) {
        part.remove_prefix(1);
    }
    while (!part.empty() && (part.back() == ' ' || part.back() == '\t')) {
        part.remove_suffix(1);
    }
    return part;
}

/// "0.75" in thousandths.
std::optional<int> parseWeight(std::string_view text)
{
    if (text.empty() || text.size() > 5 || (text.size() > 1 && text[1] != '.')) {
        return std::nullopt;
    }
    int weight = 0;
    int digit = fullWeight;
    for (std::size_t at = 0; at < text.size(); at += at == 0 ? 2 : 1) {
        if (text[at] < '0' || text[at] > '9') {
            return std::nullopt;
        }
        weight += (text[at] - '0') * digit;
        digit /= 10;
    }
    return weight <= fullWeight ? std::optional(weight) : std::nullopt;
}

/// One of the things that a header lists, "text/plain;version=0.0.4;q=0.5".
struct Wish {
    std::string_view name;
    std::string_view version; ///< empty: any
    int weight = fullWeight;
};

std::optional<Wish> nextWish(std::string_view& list)
{
    std::string_view item = nextPart(list, ',');
    Wish wish{.name = nextPart(item, ';'), .version = {}};
    while (!item.empty()) {
        std::string_view value = nextPart(item, ';');
        const std::string_view name = nextPart(value, '=');
        if (name == "q" || name == "Q") {
            const auto weight = parseWeight(value);
            if (!weight) {
                return std::nullopt;
            }
            wish.weight = *weight;
        } else if (lowercase(name) == "version") {
            const bool isQuoted = value.size() > 1 && value.front() == '"' && value.back() == '"';
            wish.version = isQuoted ? value.substr(1, value.size() - 2) : value;
        }
    }
    return wish;
}

struct Format {
    std::string_view type;
    std::string_view family; ///< all types before the slash
    std::string_view version;
};
constexpr Format openMetricsFormat = {"application/openmetrics-text", "application/*", "1.0.0"};
constexpr Format prometheusFormat = {"text/plain", "text/*", "0.0.4"};

struct Wanted {
    int closeness =
        0; ///< of the wish that decides: 4 names the version, 3 the type, 2 its family, 1 is for all; 0: none
    int weight = 0;
};

int closeness(const Wish& wish, const Format& format)
{
    const std::string name = lowercase(wish.name);
    if (name == format.type) {
        return wish.version == format.version ? 4 : wish.version.empty() ? 3 : 0;
    }
    return name == format.family ? 2 : name == "*/*" ? 1 : 0;
}

/// The closest wish decides, and of several the best.
Wanted wanted(std::string_view accept, const Format& format)
{
    Wanted best;
    while (!accept.empty()) {
        const auto wish = nextWish(accept);
        const int close = wish ? closeness(*wish, format) : 0;
        if (close > best.closeness || (close > 0 && close == best.closeness && wish->weight > best.weight)) {
            best = {close, wish->weight};
        }
    }
    return best;
}

} // namespace

MetricsFormat formatFor(std::string_view accept)
{
    const Wanted open = wanted(accept, openMetricsFormat);
    const bool isNamed = open.closeness >= 3 && open.weight > 0;
    return isNamed && open.weight >= wanted(accept, prometheusFormat).weight ? MetricsFormat::OpenMetrics
                                                                             : MetricsFormat::Prometheus;
}

bool takesGzip(std::string_view acceptEncoding)
{
    std::optional<int> ofAll;
    while (!acceptEncoding.empty()) {
        const auto wish = nextWish(acceptEncoding);
        const std::string name = wish ? lowercase(wish->name) : "";
        if (name == "gzip" || name == "x-gzip") {
            return wish->weight > 0;
        }
        if (name == "*") {
            ofAll = wish->weight;
        }
    }
    return ofAll.value_or(0) > 0;
}

} // namespace meridal
