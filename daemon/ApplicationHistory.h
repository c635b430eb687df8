// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "collectors/applications/ApplicationReader.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace meridal {

class ApplicationRecorder;
class MeridalHistory;
class ProcessViews;
struct Context;
struct Peer;

/// The clients' question about what applications have used: "groups.history". Main queue only.
class ApplicationHistory {
public:
    using Reply = std::function<void(Result<Value>)>;

    /// Recorder and views must outlive it, and it the method.
    ApplicationHistory(Context& context, ApplicationRecorder& recorder, ProcessViews& views)
        : context_(context), recorder_(recorder), views_(views)
    {
    }

    void addTo(MeridalHistory& methods);
    /// A page of totals over a time, the largest first, or of one application's course. Replies once, later.
    void history(const Value& parameters, const Peer& peer, Reply reply) const;

    static constexpr std::size_t mostPeriods = 500; ///< that totals are added up of, and on a page
    static constexpr std::size_t standardPage = 30;
    static constexpr double standardSpan = 86'400; ///< s

private:
    Context& context_;
    ApplicationRecorder& recorder_;
    ProcessViews& views_;
};

/// What a group of the record looks like to clients, without the members that say which it is.
void addRecordedFigures(Value& entry, const RecordedGroup& group);
/// The same with them.
Value describeRecordedGroup(const RecordedGroup& group);

} // namespace meridal
