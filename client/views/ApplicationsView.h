// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/Plot.h"
#include "client/plot/SvgBars.h"
#include "client/screen/StyledText.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What applications are compared by.
enum class ApplicationFigure { Cpu, Energy, Memory, Disk, Network };

/// "cpu", "energy", "memory", "disk", "network"; the first for any other word.
ApplicationFigure applicationFigureNamed(std::string_view name);

/// What the figure is called in a heading: "CPU time".
std::string applicationFigureTitle(ApplicationFigure figure);

/// Names as nobody else in the list has them: with the user, or with what it is known by. Printable.
std::vector<std::string> applicationLabels(const Value& groups);

/// The groups of groups.history with at most so many applications; the others are added to "other". What cannot be added,
/// memory and peaks, is left out there. 0 leaves them as they are.
Value foldedApplications(const Value& groups, std::size_t most);

/// The groups for people, in their order: a line each with a bar, the figure, its share and, where there is room, the other
/// figures. `room` is the width that there is, 0 for any.
Lines applicationLines(const Value& groups, ApplicationFigure figure, int room = 0);

/// The same for a picture.
SvgBars applicationPicture(const Value& groups, ApplicationFigure figure, std::string title);

/// The course of one group ("periods" of groups.history) between two moments: CPU in percent of one core, power, memory, and
/// rates. `time` is what people call the time.
Plot applicationPlot(const Value& course, ApplicationFigure figure, const std::string& time, double from, double until);

/// Rows of groups or of periods as comma-separated values, with each figure that any of them has.
std::string applicationCsv(const Value& rows);

} // namespace meridal
