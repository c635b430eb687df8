// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PastMoment.h"

#include "base/Text.h"
#include "wire/Methods.h"

namespace meridal {

namespace {

constexpr std::string_view momentName = "moment";

} // namespace

void PastMoment::addQuestion(std::vector<PanelQuestion>& questions, const PanelView& view) const
{
    if (view.moment) {
        questions.push_back(
            {.name = std::string(momentName), .method = method::momentsAt, .parameters = {{"time", *view.moment}}});
    }
}

bool PastMoment::take(const PanelAnswer& answer)
{
    if (answer.name != momentName) {
        return false;
    }
    complaint_ = answer.result ? std::string() : printable(answer.result.error().message);
    answer_ = answer.result ? *answer.result : Value();
    return true;
}

const Value* PastMoment::of(const PanelView& view) const
{
    const auto time = number(answer_, "time");
    return view.moment && time == view.moment ? &answer_ : nullptr;
}

} // namespace meridal
