// SPDX-License-Identifier: Apache-2.0
#include "client/plot/SvgPage.h"

#include "client/plot/SvgText.h"

#include <fmt/format.h>

#include <array>

namespace meridal {

namespace {

constexpr std::array svgColours = {"#2a6fdb", "#d9730d", "#2f8f4e", "#a23bb5", "#b8322f", "#5f6b7a"};

std::string elementWith(
    double width, double height, std::string_view title, std::string_view rules, std::string_view drawing)
{
    const std::string words = svgText(title);
    return fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" height=\"{1}\" "
                       "role=\"img\" aria-label=\"{2}\">\n<title>{2}</title>\n{3}{4}</svg>\n",
        width, height, words, rules, drawing);
}

} // namespace

const char* const svgRules = R"(svg{background:#fff;color:#1d232b;font:12px system-ui,sans-serif}
text{fill:currentColor}.title{font-size:15px;font-weight:600}.faint{opacity:.65}
.grid{stroke:currentColor;opacity:.15}.line{fill:none;stroke-width:1.5;stroke-linejoin:round}
.band{stroke:none;opacity:.2}
@media(prefers-color-scheme:dark){svg{background:#171b21;color:#e6e9ee}}
)";

const char* svgColour(std::size_t index) { return svgColours.at(index % svgColours.size()); }

std::string svgDocument(double width, double height, std::string_view title, std::string_view drawing)
{
    return elementWith(width, height, title, fmt::format("<style>\n{}</style>\n", svgRules), drawing);
}

std::string svgElement(double width, double height, std::string_view title, std::string_view drawing)
{
    return elementWith(width, height, title, "", drawing);
}

std::string svgLegend(double x, double base, std::size_t colour, std::string_view words)
{
    return fmt::format("<rect x=\"{}\" y=\"{:.1f}\" width=\"10\" height=\"10\" fill=\"{}\"/>"
                       "<text x=\"{}\" y=\"{:.1f}\">{}</text>\n",
        x, base - 9, svgColour(colour), x + 16, base, svgText(words));
}

} // namespace meridal
