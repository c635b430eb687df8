// SPDX-License-Identifier: Apache-2.0
#include "client/views/NetworkView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int nameColumns = 14;
constexpr int narrowestWithTotals = 92; // below that the account of all bytes gives way

std::string wordOf(const Value& interface, std::string_view key)
{
    return printable(text(interface, key).value_or(""));
}

bool isPrimary(const Value& interface)
{
    const Value* primary = find(interface, "primary");
    return primary && *primary == true;
}

bool isUp(const Value& interface) { return text(interface, "link") != "down"; }

/// The primary one, then what can carry anything, then the rest; each in the system's order.
std::vector<const Value*> inOrder(const Value& interfaces)
{
    std::vector<const Value*> all;
    for (const Value& interface : interfaces) {
        all.push_back(&interface);
    }
    const auto rank = [](const Value* each) { return isPrimary(*each) ? 0 : isUp(*each) ? 1 : 2; };
    std::stable_sort(
        all.begin(), all.end(), [&](const Value* first, const Value* second) { return rank(first) < rank(second); });
    return all;
}

std::string rateOf(const Value& interface, std::string_view key)
{
    const auto rate = number(interface, key);
    return rate ? formatByteRate(*rate) : "-";
}

std::string bytesOf(const Value& interface, std::string_view direction)
{
    const Value* bytes = find(interface, "bytes");
    const auto count = bytes ? number(*bytes, direction) : std::nullopt;
    return count ? formatBytes(*count) : "-";
}

double countOf(const Value& interface, std::string_view what)
{
    const Value* counts = find(interface, what);
    return counts ? number(*counts, "received").value_or(0) + number(*counts, "sent").value_or(0) : 0;
}

/// "12 errors, 3 dropped"; nothing while there are none.
std::string troubleOf(const Value& interface)
{
    const double errors = countOf(interface, "errors");
    const double drops = countOf(interface, "drops");
    std::string words = errors > 0 ? fixed0(errors) + (errors > 1 ? " errors" : " error") : "";
    if (drops > 0) {
        words += (words.empty() ? "" : ", ") + fixed0(drops) + " dropped";
    }
    return words;
}

/// What is to be said of one beside its figures: its network, its addresses.
std::vector<std::string> detailsOf(const Value& interface, const Value* primary)
{
    std::vector<std::string> details;
    if (const Value* wifi = find(interface, "wifi")) {
        const std::string name = wordOf(*wifi, "name");
        const std::string station = wordOf(*wifi, "bssid");
        details.push_back(name.empty() && station.empty()
                ? "on no Wi-Fi network"
                : "Wi-Fi " + (name.empty() ? "of no name" : name) + (station.empty() ? "" : " (" + station + ")"));
    }
    if (isPrimary(interface) && primary && find(*primary, "router")) {
        details.push_back("router " + wordOf(*primary, "router"));
    }
    const Value* addresses = find(interface, "addresses");
    for (const Value& address : addresses && addresses->is_array() ? *addresses : Value::array()) {
        details.push_back(address.is_string() ? printable(address.get_ref<const std::string&>()) : "?");
    }
    return details;
}

/// The words, as many a line as fit behind the column of names; all on one where there is any room.
std::vector<std::string> wrapped(const std::vector<std::string>& words, int room)
{
    constexpr std::string_view between = "  ";
    std::vector<std::string> lines;
    for (const std::string& word : words) {
        const int width = lines.empty() ? 0 : displayWidth(lines.back()) + displayWidth(word) + 2;
        if (lines.empty() || (room > 0 && width + nameColumns > room)) {
            lines.push_back(word);
        } else {
            (lines.back() += between) += word;
        }
    }
    return lines;
}

void addInterface(TextTable& table, const Value& interface, const Value* primary, bool hasTotals, int room)
{
    const Style style = isUp(interface) ? Style::Plain : Style::Faint;
    std::vector<TableCell> cells = {{isPrimary(interface) ? Style::Title : style, wordOf(interface, "interface")},
        {style, wordOf(interface, "hardware")}, {style, wordOf(interface, "link")},
        {style, rateOf(interface, "downloadRate")}, {style, rateOf(interface, "uploadRate")}};
    if (hasTotals) {
        cells.emplace_back(style, bytesOf(interface, "received"));
        cells.emplace_back(style, bytesOf(interface, "sent"));
    }
    cells.emplace_back(Style::Warning, troubleOf(interface));
    table.add(std::move(cells));
    for (const std::string& line : wrapped(detailsOf(interface, primary), room)) {
        table.addLine({{Style::Faint, std::string(nameColumns, ' ') + line}});
    }
}

} // namespace

Lines networkLines(const Value& answer, int room)
{
    const Value* interfaces = find(answer, "interfaces");
    if (!interfaces || !interfaces->is_array() || interfaces->empty()) {
        return {{{Style::Plain, "no network interfaces on this machine"}}};
    }
    const bool hasTotals = room == 0 || room >= narrowestWithTotals;
    std::vector<TableColumn> columns = {{.title = "INTERFACE", .width = nameColumns, .gap = 0},
        {.title = "HARDWARE", .width = 10, .gap = 1, .least = 4}, {"LINK", 7}, {"DOWNLOAD", 12, Align::Right},
        {"UPLOAD", 12, Align::Right, hasTotals ? 0 : 2}};
    if (hasTotals) {
        columns.push_back({"RECEIVED", 11, Align::Right});
        columns.push_back({"SENT", 11, Align::Right, 2});
    }
    columns.push_back({"TROUBLE"});
    TextTable table(std::move(columns), room);
    for (const Value* interface : inOrder(*interfaces)) {
        addInterface(table, *interface, find(answer, "primary"), hasTotals, room);
    }
    return table.lines();
}

} // namespace meridal
