// SPDX-License-Identifier: Apache-2.0
#include "client/panels/ScreenFrame.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace meridal {

namespace {

const std::array<PanelKey, 8> frameKeys = {
    {{"?", "help", "all keys, and back"}, {"q", "quit", "leave; Ctrl-C does, too"},
        {"1-9", "", "the panel of that number; a click on its name does the same"},
        {"Tab", "", "the next panel, Shift-Tab the one before"},
        {"p", "pause", "or the space bar: hold everything as it is, and go on"},
        {"Up, Down", "", "one line, one row; Page Up, Page Down, Home, End and the wheel go farther"},
        {"Esc", "", "from a past moment back to now"}, {"Ctrl-L", "", "draw everything anew"}}};

/// The state in a word or some; empty while all is as usual.
std::string stateWords(const ScreenFrame& frame, bool isShort)
{
    std::string words = frame.isConnected ? "" : isShort ? "NO DAEMON" : "NOT CONNECTED";
    const auto add = [&words](const std::string& more) { words += (words.empty() ? "" : ", ") + more; };
    if (frame.moment) {
        add(isShort ? "PAST" : "AS OF " + formatTime(*frame.moment, "%Y-%m-%d %H:%M:%S"));
    }
    if (frame.isPaused) {
        add("PAUSED");
    }
    return words;
}

Line topLine(const ScreenFrame& frame, int columns)
{
    constexpr int wide = 60;
    const std::string time = formatTime(frame.now, columns < wide ? "%H:%M:%S" : "%a %Y-%m-%d %H:%M:%S");
    const std::string state = stateWords(frame, columns < wide);
    const int room = columns - displayWidth(time) - (state.empty() ? 0 : displayWidth(state) + 2) - 2;
    const std::string machine = frame.machine.empty() ? "meridald" : frame.machine;
    Line line = {{Style::Title, fitLeft(machine, std::max(room, 0))}};
    if (!state.empty()) {
        line.push_back({Style::Warning, "  " + state});
    }
    line.push_back({Style::Plain, "  " + time});
    return line;
}

struct TitlePlace {
    std::string text;
    int column = 0;
};

/// How much of the titles is shown.
enum class TitleForm : std::uint8_t { Wide, Close, NumbersOnly };

/// The titles as they are shown: in full, and where there is too little room closer together, or numbers only but of the front one.
std::vector<TitlePlace> titlePlaces(const ScreenFrame& frame, int columns)
{
    std::vector<TitlePlace> places;
    for (const TitleForm form : {TitleForm::Wide, TitleForm::Close, TitleForm::NumbersOnly}) {
        places.clear();
        int column = 0;
        for (std::size_t index = 0; index < frame.titles.size(); ++index) {
            const std::string number = std::to_string(index + 1);
            const bool isFront = index == frame.front;
            const bool isNumber = form == TitleForm::NumbersOnly && !isFront;
            const std::string words =
                isNumber ? number : number + (form == TitleForm::Close ? "" : " ") + frame.titles[index];
            const char* behind = form == TitleForm::Wide ? " " : "";
            places.push_back({isFront ? "[" + words + "]" : " " + words + behind, column});
            column += displayWidth(places.back().text);
        }
        if (column <= columns) {
            break;
        }
    }
    return places;
}

Line titleLine(const ScreenFrame& frame, int columns)
{
    Line line;
    const auto places = titlePlaces(frame, columns);
    for (std::size_t index = 0; index < places.size(); ++index) {
        line.push_back({index == frame.front ? Style::Heading : Style::Plain, places[index].text});
    }
    return line;
}

Line keyLine(const ScreenFrame& frame, int columns)
{
    if (frame.prompt) {
        return *frame.prompt;
    }
    Line line;
    int left = columns;
    const auto add = [&](const PanelKey& each) {
        const int width = displayWidth(each.key) + displayWidth(each.word) + 3;
        if (!each.word.empty() && width - 2 <= left) {
            line.push_back({Style::Title, each.key});
            line.push_back({Style::Plain, " " + each.word + "  "});
            left -= width;
        }
    };
    add(frameKeys[0]);
    add(frameKeys[1]);
    std::for_each(frame.keys.begin(), frame.keys.end(), add);
    std::for_each(frameKeys.begin() + 2, frameKeys.end(), add);
    return line;
}

void addKeys(Lines& lines, const PanelKey& each, int columns)
{
    constexpr int keyColumns = 14;
    Lines words = wrappedLines(Style::Plain, each.help.empty() ? each.word : each.help, keyColumns, columns);
    words.front() = {{Style::Title, fitLeft(each.key, keyColumns)}, words.front().back()};
    appendLines(lines, words);
}

} // namespace

Lines framedLines(const ScreenFrame& frame, const Lines& panel, std::size_t first, int rows, int columns)
{
    Lines lines;
    if (rows > frameLinesBelow + frameLinesAbove) {
        lines = {topLine(frame, columns), titleLine(frame, columns)};
    }
    const auto room = static_cast<std::size_t>(std::max(rows - frameLinesBelow, 0));
    for (std::size_t index = first; index < panel.size() && lines.size() < room; ++index) {
        lines.push_back(panel[index]);
    }
    lines.resize(std::max(room, lines.size()));
    if (rows > 0) {
        lines.push_back(keyLine(frame, columns));
    }
    for (Line& line : lines) {
        line = cutLine(std::move(line), columns);
    }
    return lines;
}

Lines helpLines(const ScreenFrame& frame, int columns)
{
    Lines lines;
    if (!frame.keys.empty()) {
        lines.push_back({{Style::Heading, frame.titles.at(frame.front)}});
        for (const PanelKey& each : frame.keys) {
            addKeys(lines, each, columns);
        }
        lines.push_back({});
    }
    lines.push_back({{Style::Heading, "Everywhere"}});
    for (const PanelKey& each : frameKeys) {
        addKeys(lines, each, columns);
    }
    return lines;
}

std::optional<std::size_t> panelAtColumn(const ScreenFrame& frame, int columns, int column)
{
    const auto places = titlePlaces(frame, columns);
    for (std::size_t index = places.size(); index-- > 0;) {
        if (column >= places[index].column) {
            const int end = places[index].column + displayWidth(places[index].text);
            return column < end ? std::optional(index) : std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace meridal
