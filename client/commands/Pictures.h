// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/plot/Plot.h"

#include <span>
#include <string>

namespace meridal {

/// Writes a picture to a file, "-" for standard output, and ends the run.
void concludePicture(Session& session, const std::string& svg, const std::string& path);

/// Prints plots one below the other as wide as the terminal is, or writes them as a picture where there is a path, and ends
/// the run.
void concludePlots(Session& session, std::span<const Plot> plots, const std::string& svgPath);

} // namespace meridal
