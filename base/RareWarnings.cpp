// SPDX-License-Identifier: Apache-2.0
#include "base/RareWarnings.h"

#include "base/Log.h"
#include "base/Runtime.h"

#include <fmt/format.h>

namespace meridal {

void RareWarnings::tell(const std::string& subject, std::string_view line)
{
    const double now = runtime_.monotonicTime();
    if (const auto known = told_.find(subject); known != told_.end()) {
        Told& told = known->second;
        if (now - told.at < interval) {
            ++told.withheld;
            return;
        }
        log_.warning(told.withheld > 0 ? fmt::format("{} ({} times more since it was said last)", line, told.withheld)
                                       : std::string(line));
        told = {.at = now, .withheld = 0};
        return;
    }
    if (told_.size() >= mostSubjects) {
        std::erase_if(told_, [now](const auto& each) { return now - each.second.at >= interval; });
        if (told_.size() >= mostSubjects) {
            return;
        }
    }
    told_.emplace(subject, Told{.at = now, .withheld = 0});
    log_.warning(line);
}

} // namespace meridal
