// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Pages.h"

#include "client/screen/Format.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace meridal {

namespace {

class Pages : public std::enable_shared_from_this<Pages> {
public:
    Pages(Session& session, PagedQuestion question, std::function<void(Value, const Value&)> use)
        : session_(session), question_(std::move(question)), use_(std::move(use))
    {
    }

    void ask()
    {
        question_.parameters["limit"] = std::min(question_.wanted - rows_.size(), question_.page);
        const auto take = [self = shared_from_this()](const Value& page) { self->take(page); };
        const Value parameters = Value::array({question_.parameters});
        question_.mayBeRefused ? session_.callIfThere(question_.method, parameters, take)
                               : session_.call(question_.method, parameters, take);
    }

private:
    void take(const Value& page)
    {
        if (page.is_null() && question_.mayBeRefused) {
            return use_(std::move(rows_), page);
        }
        const Value* rows = find(page, question_.list);
        if (!rows || !rows->is_array()) {
            return session_.fail(
                exitStatus::refused, "the daemon's answer tells no " + question_.list + ": " + terminalJson(page));
        }
        rows_.insert(question_.isBackwards ? rows_.begin() : rows_.end(), rows->begin(), rows->end());
        const Value* more = find(page, "more");
        const Value* next = find(page, "next");
        const Value* last = next ? next : rows->empty() ? nullptr : find(rows->back(), question_.entry);
        if (more && *more == true && last && rows_.size() < question_.wanted) {
            question_.parameters[question_.cursor] = *last;
            return ask();
        }
        use_(std::move(rows_), page);
    }

    Session& session_;
    PagedQuestion question_;
    std::function<void(Value, const Value&)> use_;
    Value rows_ = Value::array();
};

} // namespace

void askPages(Session& session, PagedQuestion question, std::function<void(Value rows, const Value& last)> use)
{
    std::make_shared<Pages>(session, std::move(question), std::move(use))->ask();
}

} // namespace meridal
