// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Screen.h"

#include <curses.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>

namespace meridal {

namespace {

enum Pair : short { MediumPair = 1, HighPair };

SCREEN* terminal = nullptr; // curses keeps one current terminal for the program

bool chooseUtf8()
{
    std::setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX == 1) {
        std::setlocale(LC_CTYPE, "C.UTF-8"); // a bare environment says nothing of the terminal, and hardly any lacks it
    }
    return MB_CUR_MAX > 1;
}

std::string asciiOnly(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }, '?');
    return text;
}

} // namespace

/// A style in force while it lives.
class Screen::Attributes {
public:
    Attributes(Style style, bool coloured) : attributes_(of(style, coloured)) { attron(attributes_); }
    ~Attributes() { attroff(attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

private:
    static int of(Style style, bool coloured)
    {
        const auto colour = [coloured](Pair pair) { return coloured ? static_cast<int>(COLOR_PAIR(pair)) : 0; };
        switch (style) {
        case Style::Title:
            return static_cast<int>(A_BOLD);
        case Style::Heading:
            return static_cast<int>(A_REVERSE);
        case Style::Faint:
            return static_cast<int>(A_DIM);
        case Style::Medium:
            return colour(MediumPair);
        case Style::High:
            return static_cast<int>(A_BOLD) | colour(HighPair);
        case Style::Warning:
            return static_cast<int>(A_BOLD) | colour(MediumPair);
        case Style::Plain:
            break;
        }
        return 0;
    }

    int attributes_;
};

std::unique_ptr<Screen> Screen::open(bool coloured)
{
    const bool isUtf8 = chooseUtf8();
    terminal = newterm(nullptr, stdout, stdin);
    if (!terminal) {
        return nullptr;
    }
    auto screen = std::unique_ptr<Screen>(new Screen(coloured));
    screen->isUtf8_ = isUtf8;
    return screen;
}

Screen::Screen(bool coloured) : coloured_(coloured && has_colors()), isUtf8_(false)
{
    cbreak(); // keys come one by one, Ctrl-C still is a signal
    noecho();
    nodelay(stdscr, TRUE);
    keypad(stdscr, TRUE);
    curs_set(0);
    if (coloured_) {
        start_color();
        use_default_colors();
        init_pair(MediumPair, COLOR_YELLOW, -1);
        init_pair(HighPair, COLOR_RED, -1);
    }
}

Screen::~Screen()
{
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
            const Attributes attributes(span.style, coloured_);
            addstr((isUtf8_ ? span.text : asciiOnly(span.text)).c_str());
        }
    }
    refresh();
}

void Screen::resized()
{
    endwin(); // coming back from here, curses asks the terminal for its size
    refresh();
    clear();
}

std::optional<char> Screen::readKey()
{
    for (int key = getch(); key != ERR; key = getch()) {
        if (key > 0 && key < 0x80) {
            return static_cast<char>(key);
        }
    }
    return std::nullopt;
}

} // namespace meridal
