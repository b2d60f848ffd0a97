// SPDX-License-Identifier: Apache-2.0
#include "screen.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

#define NCURSES_NOMACROS 1 // its names stay functions
#define NCURSES_WIDECHAR 1
#include <curses.h>

namespace top {
namespace {

constexpr short warning_pair = 1, alarm_pair = 2;
constexpr int escape_milliseconds = 25;
constexpr mmask_t watched_buttons = BUTTON1_PRESSED | BUTTON1_CLICKED | BUTTON4_PRESSED | BUTTON5_PRESSED;

attr_t attributes_of(look as)
{
    return (as.bold ? A_BOLD : A_NORMAL) | (as.reversed ? A_REVERSE : A_NORMAL);
}

std::optional<press> mouse_press()
{
    MEVENT event;
    if (getmouse(&event) != OK)
        return std::nullopt;
    press pressed{key::click, 0, event.x, event.y};
    if ((event.bstate & BUTTON4_PRESSED) != 0)
        pressed.what = key::wheel_up;
    else if ((event.bstate & BUTTON5_PRESSED) != 0)
        pressed.what = key::wheel_down;
    return pressed;
}

press function_key(wint_t code)
{
    switch (code) {
    case KEY_UP:
        return {key::up};
    case KEY_DOWN:
        return {key::down};
    case KEY_LEFT:
        return {key::left};
    case KEY_RIGHT:
        return {key::right};
    case KEY_PPAGE:
        return {key::page_up};
    case KEY_NPAGE:
        return {key::page_down};
    case KEY_ENTER:
        return {key::enter};
    case KEY_BACKSPACE:
        return {key::backspace};
    case KEY_BTAB:
        return {key::tab};
    default:
        return {key::redraw};
    }
}

press character_key(wint_t code)
{
    switch (code) {
    case '\r':
    case '\n':
        return {key::enter};
    case '\t':
        return {key::tab};
    case 0x1b:
        return {key::escape};
    case '\b':
    case 0x7f:
        return {key::backspace};
    default:
        return {key::character, static_cast<char32_t>(code)};
    }
}

} // namespace

struct screen::state {
    SCREEN *terminal = nullptr;
    bool coloured = false;
    bool left = false;
};

screen::screen(bool coloured) : self_(std::make_unique<state>())
{
    const char *name = std::getenv("TERM");
    self_->terminal = newterm(nullptr, stdout, stdin);
    if (self_->terminal == nullptr)
        throw std::runtime_error(std::string("unknown terminal type \"") + (name == nullptr ? "" : name) + '"');
    if (tigetstr("cup") == nullptr || tigetstr("clear") == nullptr) {
        endwin();
        delscreen(self_->terminal);
        throw std::runtime_error("the terminal cannot place its cursor");
    }
    set_escdelay(escape_milliseconds);
    cbreak();
    noecho();
    nonl();
    intrflush(stdscr, false);
    keypad(stdscr, true);
    nodelay(stdscr, true);
    curs_set(0);
    mouseinterval(0);
    mousemask(watched_buttons, nullptr);
    self_->coloured = coloured && has_colors() && start_color() == OK;
    if (self_->coloured) {
        const short background = use_default_colors() == OK ? -1 : COLOR_BLACK;
        init_pair(warning_pair, COLOR_YELLOW, background);
        init_pair(alarm_pair, COLOR_RED, background);
    }
}

screen::~screen()
{
    leave();
    delscreen(self_->terminal);
}

int screen::width() const
{
    return getmaxx(stdscr);
}

int screen::height() const
{
    return getmaxy(stdscr);
}

void screen::show(const canvas &content)
{
    self_->left = false;
    erase();
    for (int y = 0; y < content.height() && y < height(); ++y) {
        for (int x = 0; x < content.width() && x < width(); ++x) {
            const canvas::cell &c = content.at(x, y);
            if (c.glyph == 0 || c == canvas::cell{})
                continue;
            const wchar_t text[] = {static_cast<wchar_t>(c.glyph), static_cast<wchar_t>(c.accents[0]),
                                    static_cast<wchar_t>(c.accents[1]), 0};
            const short pair = !self_->coloured || c.as.colour == tone::plain ? 0
                               : c.as.colour == tone::warning                 ? warning_pair
                                                                              : alarm_pair;
            cchar_t glyph;
            setcchar(&glyph, text, attributes_of(c.as), pair, nullptr);
            mvadd_wch(y, x, &glyph);
        }
    }
    refresh();
}

void screen::repaint()
{
    clearok(curscr, true);
}

std::optional<press> screen::next_press()
{
    wint_t code = 0;
    switch (get_wch(&code)) {
    case OK:
        return character_key(code);
    case KEY_CODE_YES:
        return code == KEY_MOUSE ? mouse_press().value_or(press{key::redraw}) : function_key(code);
    default:
        return std::nullopt;
    }
}

void screen::resize()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
        resizeterm(size.ws_row, size.ws_col);
}

void screen::leave()
{
    if (!self_->left)
        endwin();
    self_->left = true;
}

} // namespace top
