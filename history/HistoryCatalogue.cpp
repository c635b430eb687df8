// SPDX-License-Identifier: Apache-2.0
#include "history/HistoryCatalogue.h"

#include "history/RecordedSeries.h"

#include <utility>

namespace meridal {

void HistoryCatalogue::whenComplete(Task task) const
{
    for (const auto& [name, entry] : entries_) {
        if (entry.earlier && entry.earlier->isLoading()) {
            return entry.earlier->whenLoaded([this, task = std::move(task)] { whenComplete(task); });
        }
    }
    task();
}

} // namespace meridal
