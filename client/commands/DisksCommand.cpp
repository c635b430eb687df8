// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/views/DisksView.h"
#include "wire/Methods.h"

namespace meridal {

namespace {

constexpr const char* disksExamples =
    R"("wear" is the share of a disk's rated life that is used up. A disk that sleeps is not
woken for this; its figures are of when it was last awake.

Examples:
  meridalctl disks
  meridalctl disks --attributes
)";

struct DisksOptions {
    bool attributes = false; ///< all that they keep
    bool json = false;
};

/// Holds the key of disk health, without which no disk is read.
int runDisks(Session& session, const DisksOptions& options)
{
    PagedQuestion question{.method = method::disksList, .list = "disks", .page = 64};
    if (options.attributes) {
        question.parameters["attributes"] = true;
    }
    return session.run([&] {
        session.call(method::startSMARTStatus, Value::array(), [&](const Value&) {
            askPages(session, question, [&](const Value& disks, const Value&) {
                options.json ? session.conclude(jsonLine({{"disks", disks}}))
                             : session.conclude(diskLines(disks, options.attributes, terminalColumns().value_or(0)));
            });
        });
    });
}

} // namespace

void addDisks(Grammar& grammar)
{
    auto [disks, options] = grammar.add("disks", "The disks, their temperature and health", runDisks);
    disks.examples(disksExamples);
    disks.flag("--attributes", options.attributes, "Also list what each disk keeps of itself");
    disks.flag("--json", options.json, "As JSON");
}

} // namespace meridal
