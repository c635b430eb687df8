// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/Panel.h"

#include <string>
#include <vector>

namespace meridal {

/// What was recorded of the past moment that a panel is to show.
class PastMoment {
public:
    /// Adds the question where the view is of the past.
    void addQuestion(std::vector<PanelQuestion>& questions, const PanelView& view) const;
    /// Whether the answer was to that question.
    bool take(const PanelAnswer& answer);

    /// The answer of moments.at about the view's moment; nothing while it has not come.
    const Value* of(const PanelView& view) const;
    /// Why there is none, printable; empty while all is well.
    const std::string& complaint() const { return complaint_; }

private:
    Value answer_;
    std::string complaint_;
};

} // namespace meridal
