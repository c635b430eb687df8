// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Screen.h"

#include "base/Text.h"
#include "client/screen/Terminal.h"
#include "client/screen/TerminalKind.h"
#include "client/screen/Utf8.h"

#include <curses.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace meridal {

namespace {

enum Pair : short { MediumPair = 1, HighPair };

constexpr int escapeDelay = 50; // ms that the rest of a key's sequence may take, also over a network

#ifdef BUTTON5_PRESSED
constexpr mmask_t wheelDown = BUTTON5_PRESSED;
#else
constexpr mmask_t wheelDown = 0; // older curses, such as Apple's, know four buttons
#endif

SCREEN* terminal = nullptr; // curses keeps one current terminal for the program

/// Whether the terminal takes UTF-8. A bare environment says nothing of that, and hardly any terminal lacks it.
bool environmentAllowsUtf8()
{
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value != '\0') {
            const std::string locale = lowercase(value);
            return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
        }
    }
    return true;
}

int attributesOf(Style style, const ScreenOptions& options)
{
    const auto bold = static_cast<int>(A_BOLD);
    const bool isMono = options.theme == Theme::Mono;
    const auto colour = [&](Pair pair) { return options.isColoured ? static_cast<int>(COLOR_PAIR(pair)) : 0; };
    switch (style) {
    case Style::Title:
        return bold;
    case Style::Heading:
        return static_cast<int>(A_REVERSE);
    case Style::Chosen:
        return static_cast<int>(A_REVERSE) | bold;
    case Style::Faint:
        return static_cast<int>(A_DIM);
    case Style::Medium:
        return isMono ? static_cast<int>(A_UNDERLINE) : colour(MediumPair);
    case Style::High:
        return bold | (isMono ? static_cast<int>(A_UNDERLINE) : colour(HighPair));
    case Style::Warning:
        return bold | (isMono ? static_cast<int>(A_REVERSE) : colour(MediumPair));
    case Style::Plain:
        break;
    }
    return 0;
}

} // namespace

/// A style in force while it lives.
class Screen::Attributes {
public:
    explicit Attributes(int attributes) : attributes_(attributes) { attron(attributes_); }
    ~Attributes() { attroff(attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

private:
    int attributes_;
};

std::unique_ptr<Screen> Screen::open(const ScreenOptions& options)
{
    std::setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX == 1) {
        std::setlocale(LC_CTYPE, "C.UTF-8"); // or curses would take one character for several
    }
    terminal = isKnownTerminalKind() ? newterm(nullptr, stdout, stdin) : nullptr;
    if (!terminal) {
        return nullptr;
    }
    ScreenOptions possible = options;
    possible.isAscii = options.isAscii || !environmentAllowsUtf8() || MB_CUR_MAX == 1;
    possible.isColoured = options.isColoured && options.theme != Theme::Mono && has_colors();
    return std::unique_ptr<Screen>(new Screen(possible));
}

Screen::Screen(ScreenOptions options) : options_(options)
{
    cbreak(); // keys come one by one, Ctrl-C still is a signal
    noecho();
    nodelay(stdscr, TRUE);
    keypad(stdscr, TRUE);
    set_escdelay(escapeDelay);
    curs_set(0);
    if (options_.isColoured) {
        const bool isBlind = options_.theme == Theme::ColourBlind;
        start_color();
        use_default_colors();
        init_pair(MediumPair, isBlind ? COLOR_CYAN : COLOR_YELLOW, -1);
        init_pair(HighPair, isBlind ? COLOR_YELLOW : COLOR_RED, -1);
    }
    if (options_.hasMouse) {
        mousemask(BUTTON1_PRESSED | BUTTON4_PRESSED | wheelDown, nullptr);
        mouseinterval(0); // no waiting for a second click
    }
}

Screen::~Screen()
{
    if (options_.hasMouse) {
        mousemask(0, nullptr);
    }
    curs_set(1);
    endwin();
    delscreen(terminal);
    terminal = nullptr;
}

int Screen::rows() const { return getmaxy(stdscr); }

int Screen::columns() const { return getmaxx(stdscr); }

void Screen::show(const Lines& lines)
{
    erase();
    int row = 0;
    for (const Line& line : lines) {
        if (row >= rows()) {
            break;
        }
        move(row++, 0);
        for (const Span& span : line) {
            const Attributes attributes(attributesOf(span.style, options_));
            const std::string text = printable(span.text); // whatever went wrong before: no data steers the terminal
            addstr((options_.isAscii ? asciiLikeness(text) : text).c_str());
        }
    }
    wnoutrefresh(stdscr);
    doupdate();
}

void Screen::resized()
{
    const auto rows = terminalRows();
    const auto columns = terminalColumns();
    if (rows && columns) {
        resizeterm(*rows, *columns);
    }
}

void Screen::repaint() { clearok(curscr, TRUE); }

std::optional<Key> Screen::readKey()
{
    struct Named {
        int code;
        Key::Kind kind;
    };
    using Kind = Key::Kind;
    static constexpr std::array<Named, 21> named = {{{KEY_UP, Kind::Up}, {KEY_DOWN, Kind::Down}, {KEY_LEFT, Kind::Left},
        {KEY_RIGHT, Kind::Right}, {KEY_PPAGE, Kind::PageUp}, {KEY_NPAGE, Kind::PageDown}, {KEY_HOME, Kind::Home},
        {KEY_END, Kind::End}, {KEY_IC, Kind::Insert}, {KEY_DC, Kind::Delete}, {KEY_BACKSPACE, Kind::Backspace},
        {0x7F, Kind::Backspace}, {0x08, Kind::Backspace}, {KEY_ENTER, Kind::Enter}, {'\n', Kind::Enter},
        {'\r', Kind::Enter}, {0x1B, Kind::Escape}, {'\t', Kind::Tab}, {KEY_BTAB, Kind::BackTab}, {KEY_LL, Kind::End},
        {0x0C, Kind::Redraw}}};
    for (int code = getch(); code != ERR; code = getch()) {
        const auto found =
            std::find_if(named.begin(), named.end(), [&](const Named& each) { return each.code == code; });
        if (found != named.end()) {
            return Key::of(found->kind);
        }
        if (code > KEY_F0 && code <= KEY_F(12)) {
            return Key{.kind = Kind::Function, .number = code - KEY_F0};
        }
        MEVENT event{};
        if (code == KEY_MOUSE && getmouse(&event) == OK) {
            const auto kind = (event.bstate & BUTTON4_PRESSED) != 0 ? Kind::WheelUp
                : (event.bstate & wheelDown) != 0                   ? Kind::WheelDown
                                                                    : Kind::Click;
            return Key{.kind = kind, .row = event.y, .column = event.x};
        }
        if (const auto character = code >= ' ' && code <= 0xFF ? readCharacter(code) : std::nullopt) {
            return character;
        }
    }
    return std::nullopt;
}

std::optional<Key> Screen::readCharacter(int first)
{
    const int more = first < 0xC0 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    std::string bytes(1, static_cast<char>(first));
    for (int index = 0; index < more; ++index) {
        const int next = getch();
        if (next < 0x80 || next > 0xBF) {
            if (next != ERR) {
                ungetch(next);
            }
            return std::nullopt;
        }
        bytes += static_cast<char>(next);
    }
    const bool isText = validUtf8(bytes) == bytes && printable(bytes) == bytes;
    return isText ? std::optional(Key::of(pointsOf(bytes).front())) : std::nullopt;
}

} // namespace meridal
