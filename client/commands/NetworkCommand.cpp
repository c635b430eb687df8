// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/RepeatedView.h"
#include "client/commands/Rows.h"
#include "client/screen/Format.h"
#include "client/views/NetworkView.h"
#include "wire/Methods.h"

#include <array>
#include <functional>
#include <utility>

namespace meridal {

namespace {

constexpr const char* networkExamples =
    R"(Rates are those of the daemon's latest 2 s; totals and trouble count from when an interface
came up. What programs used the network is "top network", what went through over days
"bandwidth".

Examples:
  meridalctl network
  meridalctl network --watch
  meridalctl network --json | jq '.interfaces[] | select(.link == "up") | .addresses'
)";

struct NetworkOptions {
    bool watch = false;
    std::size_t refreshes = 0; ///< with it, stop after so many; 0: never
    RowsForm form;
};

constexpr std::array<const char*, 15> interfaceColumns = {"interface", "hardware", "link", "primary", "downloadRate",
    "uploadRate", "bytes.received", "bytes.sent", "errors.received", "errors.sent", "drops.received", "drops.sent",
    "wifi.name", "wifi.bssid", "addresses"};

void askInterfaces(Session& session, std::function<void(Value)> use)
{
    askPages(session, {.method = method::networkInterfaces, .list = "interfaces", .entry = "index"},
        [use = std::move(use)](Value interfaces, const Value& last) {
            Value answer{{"interfaces", std::move(interfaces)}};
            if (const Value* primary = find(last, "primary")) {
                answer["primary"] = *primary;
            }
            use(std::move(answer));
        });
}

int runNetwork(Session& session, const NetworkOptions& options)
{
    if (options.watch) {
        RepeatedView view(session,
            {.ask = [&](auto use) { askInterfaces(session, std::move(use)); },
                .list = "interfaces",
                .lines = [](const Value& answer, int room) { return networkLines(answer, room); },
                .json = options.form.json,
                .refreshes = options.refreshes});
        return session.runUntilInterrupted([&view] { view.start(); });
    }
    return session.run([&] {
        askInterfaces(session, [&](const Value& answer) {
            concludeRows(session, options.form,
                {answer, "interfaces", interfaceColumns, [&](int room) { return networkLines(answer, room); }});
        });
    });
}

} // namespace

void addNetwork(Grammar& grammar)
{
    auto [network, options] =
        grammar.add("network", "The network interfaces: rates, link, addresses, Wi-Fi network and errors", runNetwork);
    network.examples(networkExamples);
    network.flag("--watch", options.watch, "Show them again every 2 seconds, until interrupted");
    network.count("--refreshes", options.refreshes, "With --watch, stop after so many, as text");
    network.need("--refreshes", "--watch");
    addRowsOptions(network, options.form);
    network.exclude("--csv", "--watch");
}

} // namespace meridal
