// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Pictures.h"

#include "client/plot/SvgPlot.h"
#include "client/screen/Output.h"
#include "client/screen/Terminal.h"

namespace meridal {

namespace {

constexpr int columnsWithoutTerminal = 100;
constexpr int rowsOfOnePlot = 15;
constexpr int rowsOfSeveralPlots = 9; // each

} // namespace

void concludePicture(Session& session, const std::string& svg, const std::string& path)
{
    if (path == "-") {
        return session.conclude(svg);
    }
    const std::string failure = writeFile(path, svg);
    failure.empty() ? session.finish(exitStatus::success)
                    : session.fail(exitStatus::refused, "cannot write " + path + ": " + failure);
}

void concludePlots(Session& session, std::span<const Plot> plots, const std::string& svgPath)
{
    if (!svgPath.empty()) {
        return concludePicture(session, plotsSvg(plots), svgPath);
    }
    Lines lines;
    for (const Plot& plot : plots) {
        appendLines(lines, lines.empty() ? Lines() : Lines{{}});
        appendLines(lines,
            plotLines(plot, terminalColumns().value_or(columnsWithoutTerminal),
                plots.size() == 1 ? rowsOfOnePlot : rowsOfSeveralPlots));
    }
    session.conclude(lines);
}

} // namespace meridal
