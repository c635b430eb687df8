// SPDX-License-Identifier: Apache-2.0
#include "client/report/Html.h"

#include "client/plot/SvgPage.h"
#include "client/plot/SvgText.h"

#include <fmt/format.h>

namespace meridal {

namespace {

constexpr const char* pageRules =
    R"(body{margin:2rem auto;max-width:62rem;padding:0 1rem;background:#fff;color:#1d232b;font:15px/1.5 system-ui,sans-serif}
h1{font-size:1.6rem;margin:0}h2{font-size:1.15rem;margin:2rem 0 .5rem;border-bottom:1px solid;padding-bottom:.2rem}
svg{display:block;max-width:100%;height:auto;margin:.5rem 0}pre{overflow-x:auto;white-space:pre;font:13px/1.45 ui-monospace,monospace}
.wrapped{white-space:pre-wrap}.heading{font-weight:600}.medium{color:#8a5a00}.high,.warning{color:#b3261e;font-weight:600}.faint{opacity:.65}
@media(prefers-color-scheme:dark){body{background:#171b21;color:#e6e9ee}.medium{color:#e6b450}.high,.warning{color:#ff8a80}}
@media print{body{max-width:none}h2{break-after:avoid}svg,pre{break-inside:avoid}}
)";

const char* classOf(Style style)
{
    switch (style) {
    case Style::Plain:
    case Style::Chosen:
        break;
    case Style::Title:
    case Style::Heading:
        return "heading";
    case Style::Faint:
        return "faint";
    case Style::Medium:
        return "medium";
    case Style::High:
        return "high";
    case Style::Warning:
        return "warning";
    }
    return nullptr;
}

} // namespace

std::string htmlOf(const Lines& lines, bool isWrapped)
{
    if (lines.empty()) {
        return {};
    }
    std::string out = isWrapped ? "<pre class=\"wrapped\">\n" : "<pre>\n";
    for (const Line& line : lines) {
        for (const Span& span : line) {
            const char* const name = classOf(span.style);
            out += name ? fmt::format("<span class=\"{}\">{}</span>", name, svgText(span.text)) : svgText(span.text);
        }
        out += '\n';
    }
    return out + "</pre>\n";
}

std::string htmlPage(std::string_view title, std::string_view body)
{
    return fmt::format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<link rel=\"icon\" href=\"data:,\">\n<title>{}</title>\n<style>\n{}{}</style>\n</head>\n"
                       "<body>\n{}</body>\n</html>\n",
        svgText(title), svgRules, pageRules, body);
}

std::string htmlSection(std::string_view title, std::string_view body)
{
    return body.empty() ? std::string() : fmt::format("<section>\n<h2>{}</h2>\n{}</section>\n", svgText(title), body);
}

} // namespace meridal
