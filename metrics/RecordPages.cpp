// SPDX-License-Identifier: Apache-2.0
#include "metrics/RecordPages.h"

#include <memory>
#include <utility>

namespace meridal {

namespace {

class RecordPages : public std::enable_shared_from_this<RecordPages> {
public:
    RecordPages(MetricsCaller caller, RecordQuestion question,
        std::function<void(const Value& rows, const Value& page)> take, std::function<void(Result<void>)> done)
        : caller_(std::move(caller)), question_(std::move(question)), take_(std::move(take)), done_(std::move(done))
    {
    }

    void ask()
    {
        caller_(question_.method, Value::array({question_.parameters}),
            [self = shared_from_this()](const Result<Value>& result) { self->receive(result); });
    }

private:
    void receive(const Result<Value>& result)
    {
        if (!result) {
            const Error& error = result.error();
            return done_(error.code == ErrorCode::NotFound ? Result<void>() : unexpected(error.code, error.message));
        }
        const Value* rows = find(*result, question_.list);
        if (!rows || !rows->is_array()) {
            return done_(unexpected(ErrorCode::Internal, "the daemon's answer tells no " + question_.list));
        }
        take_(*rows, *result);
        const Value* more = find(*result, "more");
        const Value* next = find(*result, "next");
        const Value* last = next ? next : rows->empty() ? nullptr : find(rows->back(), question_.entry);
        if (question_.onlyFirst || !more || *more != true || !last) {
            return done_({});
        }
        question_.parameters[question_.cursor] = *last;
        ask();
    }

    const MetricsCaller caller_;
    RecordQuestion question_;
    const std::function<void(const Value& rows, const Value& page)> take_;
    const std::function<void(Result<void>)> done_;
};

} // namespace

void askRecordPages(const MetricsCaller& caller, RecordQuestion question,
    std::function<void(const Value& rows, const Value& page)> take, std::function<void(Result<void>)> done)
{
    std::make_shared<RecordPages>(caller, std::move(question), std::move(take), std::move(done))->ask();
}

} // namespace meridal
