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
constexpr int rateCourseColumns = 12;
constexpr int narrowestWithTotals = 92; // below that the account of all bytes gives way
constexpr int narrowestWithLink = 56;   // below that only the rates stay beside the names

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

/// What there is room for.
struct NetworkLayout {
    NetworkLayout(int columns, const RecentCourses* recent)
        : room(columns)
        , courses(recent)
        , hasLink(room == 0 || room >= narrowestWithLink)
        , hasTotals(room == 0 || room >= narrowestWithTotals + (courses ? rateCourseColumns + 2 : 0))
    {
    }

    std::vector<TableColumn> columns() const
    {
        std::vector<TableColumn> columns = {{.title = "INTERFACE", .width = nameColumns, .gap = 0}};
        if (hasLink) {
            columns.push_back({.title = "HARDWARE", .width = 10, .gap = 1, .least = 4});
            columns.push_back({"LINK", 7});
        }
        columns.push_back({"DOWNLOAD", 12, Align::Right});
        columns.push_back({"UPLOAD", 12, Align::Right, hasTotals && !courses ? 0 : 2});
        if (courses) {
            columns.push_back(
                {.title = courses->title(), .width = rateCourseColumns, .gap = hasTotals ? 0 : 2, .leaves = 1});
        }
        if (hasTotals) {
            columns.push_back({"RECEIVED", 11, Align::Right});
            columns.push_back({"SENT", 11, Align::Right, 2});
        }
        if (hasLink) {
            columns.push_back({"TROUBLE"});
        }
        return columns;
    }

    int room;
    const RecentCourses* courses;
    bool hasLink;
    bool hasTotals;
};

/// The words, as many a line as fit behind an indentation; all on one where there is any room.
std::vector<std::string> wrapped(const std::vector<std::string>& words, int indent, int room)
{
    constexpr std::string_view between = "  ";
    std::vector<std::string> lines;
    for (const std::string& word : words) {
        const int width = lines.empty() ? 0 : displayWidth(lines.back()) + displayWidth(word) + 2;
        if (lines.empty() || (room > 0 && width + indent > room)) {
            lines.push_back(word);
        } else {
            (lines.back() += between) += word;
        }
    }
    return lines;
}

void addInterface(TextTable& table, const Value& interface, const Value* primary, const NetworkLayout& layout)
{
    const Style style = isUp(interface) ? Style::Plain : Style::Faint;
    const std::string trouble = troubleOf(interface);
    std::vector<TableCell> cells = {{isPrimary(interface) ? Style::Title : style, wordOf(interface, "interface")}};
    if (layout.hasLink) {
        cells.emplace_back(style, wordOf(interface, "hardware"));
        cells.emplace_back(style, wordOf(interface, "link"));
    }
    cells.emplace_back(style, rateOf(interface, "downloadRate"));
    cells.emplace_back(style, rateOf(interface, "uploadRate"));
    if (layout.courses) {
        const std::string name = text(interface, "interface").value_or("");
        cells.emplace_back(Style::Faint, layout.courses->spark(name, rateCourseColumns));
    }
    if (layout.hasTotals) {
        cells.emplace_back(style, bytesOf(interface, "received"));
        cells.emplace_back(style, bytesOf(interface, "sent"));
    }
    if (layout.hasLink) {
        cells.emplace_back(Style::Warning, trouble);
    }
    table.add(std::move(cells));
    const int indent = layout.hasLink ? nameColumns : 2;
    const std::string margin(static_cast<std::size_t>(indent), ' ');
    if (!layout.hasLink && !trouble.empty()) {
        table.addLine({{Style::Warning, margin + trouble}});
    }
    std::vector<std::string> details = detailsOf(interface, primary);
    if (!layout.hasLink && !isUp(interface)) {
        details.insert(details.begin(), "down");
    }
    for (const std::string& line : wrapped(details, indent, layout.room)) {
        table.addLine({{Style::Faint, margin + line}});
    }
}

} // namespace

Lines networkLines(const Value& answer, int room, const RecentCourses* courses)
{
    const Value* interfaces = find(answer, "interfaces");
    if (!interfaces || !interfaces->is_array() || interfaces->empty()) {
        return {{{Style::Plain, "no network interfaces on this machine"}}};
    }
    const NetworkLayout layout(room, courses);
    TextTable table(layout.columns(), room);
    for (const Value* interface : inOrder(*interfaces)) {
        addInterface(table, *interface, find(answer, "primary"), layout);
    }
    return table.lines();
}

} // namespace meridal
