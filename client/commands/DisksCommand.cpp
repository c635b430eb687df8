// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CheckQuery.h"
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Rows.h"
#include "client/screen/Format.h"
#include "client/views/DisksView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

namespace {

constexpr const char* disksExamples =
    R"("wear" is the share of a disk's rated life that is used up. A disk that sleeps is not
woken for this; its figures are of when it was last awake.

Examples:
  meridalctl disks
  meridalctl disks --attributes
  meridalctl disks sda --attributes
)";

struct DisksOptions {
    std::vector<std::string> names; ///< only these; none: all
    bool attributes = false;        ///< all that they keep
    RowsForm form;
    bool check = false; ///< only say whether they are fine
};

constexpr std::array<const char*, 16> diskColumns = {"bsd", "model", "serial", "firmware", "kind", "spins", "state",
    "healthy", "problems", "temperature", "wear", "powerOn", "powerCycles", "bytesRead", "bytesWritten", "time"};

bool isNamed(const Value& disk, const std::string& name)
{
    return text(disk, "bsd") == name || text(disk, "serial") == name || text(disk, "key") == name;
}

/// In the daemon's order; a name that is nobody's ends the session.
std::optional<Value> disksNamed(Session& session, const Value& disks, const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        if (std::none_of(disks.begin(), disks.end(), [&](const Value& disk) { return isNamed(disk, name); })) {
            session.fail(exitStatus::refused, "there is no disk \"" + name + "\"; \"meridalctl disks\" lists them");
            return std::nullopt;
        }
    }
    Value chosen = Value::array();
    for (const Value& disk : disks) {
        if (names.empty()
            || std::any_of(names.begin(), names.end(), [&](const std::string& name) { return isNamed(disk, name); })) {
            chosen.push_back(disk);
        }
    }
    return chosen;
}

void reportDisks(Session& session, const DisksOptions& options, const Value& all)
{
    const auto disks = disksNamed(session, all, options.names);
    if (!disks) {
        return;
    }
    concludeRows(session, options.form, {{{"disks", *disks}}, "disks", diskColumns, [&](int room) {
                                             return diskLines(*disks, options.attributes, room);
                                         }});
}

/// Holds the key of disk health, without which no disk is read.
int runDisks(Session& session, const DisksOptions& options)
{
    if (options.check) {
        return runCheckOf(session, {"disks"}, options.form.json);
    }
    PagedQuestion question{.method = method::disksList, .list = "disks", .page = 64};
    if (options.attributes) {
        question.parameters["attributes"] = true;
    }
    return session.run([&] {
        session.call(method::startSMARTStatus, Value::array(), [&](const Value&) {
            askPages(
                session, question, [&](const Value& disks, const Value&) { reportDisks(session, options, disks); });
        });
    });
}

} // namespace

void addDisks(Grammar& grammar)
{
    auto [disks, options] = grammar.add("disks", "The disks, their temperature and health", runDisks);
    disks.examples(disksExamples);
    disks.anyWords("disk", options.names, "Only these, by name or serial number");
    disks.flag("--attributes", options.attributes, "Also list what each disk keeps of itself");
    addRowsOptions(disks, options.form);
    disks.flag("--check", options.check, "Say whether they are fine, as \"check disks\"");
    disks.exclude("--check", "--attributes");
    disks.exclude("--check", "disk");
    disks.exclude("--csv", "--attributes");
    disks.exclude("--csv", "--check");
}

} // namespace meridal
