// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/EvidenceQuery.h"
#include "client/screen/Format.h"
#include "client/screen/Moments.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/ReasonsView.h"

#include <utility>

namespace meridal {

namespace {

constexpr const char* whyExamples =
    R"(Looks at the machine for three seconds, or with --at at what is recorded of a moment,
and says what stands out, who causes it and for how long it has lasted.

Examples:
  meridalctl why slow
  meridalctl why hot
  meridalctl why busy-disk --at "Tue 03:00"
  meridalctl why draining --json
)";

struct WhyOptions {
    std::string complaint = "slow";
    std::string moment; ///< empty: now
    bool json = false;
};

int runWhy(Session& session, const WhyOptions& options)
{
    const auto complaint = complaintNamed(options.complaint).value_or(Complaint::Slow);
    const double now = wallTime();
    const auto time = options.moment.empty() ? std::optional(now) : momentFrom(options.moment, now);
    if (!time) {
        session.fail(exitStatus::usage, momentComplaint(options.moment));
        return exitStatus::usage;
    }
    EvidenceQuery query(session, complaint, *time, options.moment.empty());
    return session.run([&] {
        query.start([&](const Evidence& evidence) {
            const Verdict verdict = verdictOf(complaint, evidence);
            options.json ? session.conclude(answerLine(verdictValue(options.complaint, evidence, verdict)))
                         : session.conclude(verdictLines(evidence, verdict));
        });
    });
}

} // namespace

void addWhy(Grammar& grammar)
{
    auto [why, options] = grammar.add(
        "why", "Why the machine is hot, loud, slow, short of memory or charge, or its disks or network busy", runWhy);
    why.examples(whyExamples);
    why.choice("complaint", options.complaint, complaintNames(), "What is the matter");
    why.text("--at", options.moment, "TIME", "At that moment, and not now");
    why.flag("--json", options.json, "As JSON");
}

} // namespace meridal
