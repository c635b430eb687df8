// SPDX-License-Identifier: Apache-2.0
#include "exporter/ExporterOptions.h"

#include "base/Installation.h"
#include "base/Text.h"
#include "exporter/HttpServer.h"
#include "wire/Version.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <sstream>

namespace meridal {

namespace {

constexpr int wrongUsage = 64; // as in sysexits

/// What was typed is in CLI11's messages.
void printFiltered(std::ostream& stream, const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        stream << printable(line) << '\n';
    }
}

} // namespace

std::variant<ExporterOptions, int> parseExporterOptions(int count, const char* const* argv)
{
    ExporterOptions options;
    options.socketPath = installation().paths.socket();
    CLI::App app("Serves what meridald measures to Prometheus and its kin.", "meridal-exporter");
    app.add_option(
           "--listen", options.listen, "ADDRESS:PORT, with an IPv6 address in brackets, or unix:/PATH; may be repeated")
        ->type_name("WHERE")
        ->take_all()
        ->check(&HttpServer::complaintAbout, "")
        ->default_str("127.0.0.1:9669");
    app.add_option("--socket", options.socketPath, "The daemon's socket")
        ->envname("MERIDAL_SOCKET")
        ->type_name("PATH")
        ->default_str(installation().paths.socket().string());
    app.add_option("--groups", options.metrics.groups, "Applications with figures of their own; 0: none have any")
        ->check(CLI::Range(std::size_t{0}, mostMetricGroups))
        ->type_name("N")
        ->default_str(std::to_string(options.metrics.groups));
    app.add_flag("--all", options.metrics.all, "Also the machine's own figures, which node_exporter has");
    app.add_flag("!--no-wifi-names", options.metrics.wifiNames, "Do not name Wi-Fi networks");
    app.set_version_flag("--version", versionText("meridal-exporter"));
    try {
        app.parse(count, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream out;
        std::ostringstream complaint;
        const int status = app.exit(error, out, complaint);
        printFiltered(std::cout, out.str());
        printFiltered(std::cerr, complaint.str());
        return status == 0 ? 0 : wrongUsage;
    }
    return options;
}

} // namespace meridal
