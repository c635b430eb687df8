// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PagedList.h"

#include "base/Text.h"

#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostPages = 32; // of a daemon that never comes to an end

} // namespace

void PagedList::addQuestions(std::vector<PanelQuestion>& questions) const
{
    for (std::size_t page = 0; page < pages_.size(); ++page) {
        PanelQuestion question{.name = nameOf(page),
            .method = traits_.method,
            .parameters = traits_.parameters,
            .interval = traits_.interval};
        if (page > 0) {
            question.parameters["after"] = pages_[page].after;
        }
        questions.push_back(std::move(question));
    }
}

bool PagedList::take(const PanelAnswer& answer)
{
    std::size_t page = 0;
    while (page < pages_.size() && nameOf(page) != answer.name) {
        ++page;
    }
    if (page == pages_.size()) {
        return false;
    }
    complaint_ = answer.result ? std::string() : printable(answer.result.error().message);
    if (!answer.result) {
        return true;
    }
    const Value* rows = find(*answer.result, traits_.list);
    pages_[page].rows = rows && rows->is_array() ? *rows : Value::array();
    if (page == 0) {
        firstAnswer_ = *answer.result;
        isKnown_ = true;
    }
    const Value* more = find(*answer.result, "more");
    const Value* last = pages_[page].rows.empty() ? nullptr : find(pages_[page].rows.back(), traits_.entry);
    if (!more || *more != true || !last || page + 1 == mostPages) {
        pages_.resize(page + 1);
    } else if (page + 1 == pages_.size()) {
        pages_.push_back({.after = *last});
    } else {
        pages_[page + 1].after = *last;
    }
    return true;
}

Value PagedList::rows() const
{
    Value all = Value::array();
    for (const Page& page : pages_) {
        all.insert(all.end(), page.rows.begin(), page.rows.end());
    }
    return all;
}

std::string PagedList::nameOf(std::size_t page) const
{
    return page == 0 ? traits_.name : traits_.name + " " + std::to_string(page);
}

} // namespace meridal
