// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/full_screen.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <utility>

// Functions, not macros, which would have common names.
#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <curses.h>

namespace cli {
namespace {

constexpr short kBrokenPair = 1;
constexpr short kWarningPair = 2;
/// How long the rest of a key that begins with Escape is waited for.
constexpr int kEscapeDelayMs = 50;

/// ncurses installs handlers of signals, which end the process in a way of their own: they hold while a
/// screen is there, where the signals are blocked, and no longer.
class KeptHandlers {
public:
    KeptHandlers()
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            ::sigaction(kSignals.at(i), nullptr, &m_before.at(i));
    }
    ~KeptHandlers()
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            ::sigaction(kSignals.at(i), &m_before.at(i), nullptr);
    }
    KeptHandlers(const KeptHandlers&) = delete;
    KeptHandlers& operator=(const KeptHandlers&) = delete;

private:
    static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGTSTP, SIGWINCH};
    std::array<struct sigaction, kSignals.size()> m_before{};
};

KeyPress Character(wint_t character)
{
    std::array<char, MB_LEN_MAX + 1> bytes{};
    std::mbstate_t state{};
    const std::size_t count = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
    if (count == static_cast<std::size_t>(-1)) return {};
    return {Key::kCharacter, std::string(bytes.data(), count)};
}

KeyPress OfControl(wint_t character)
{
    constexpr wint_t kCtrlC = 3, kCtrlH = 8, kEscape = 27, kDelete = 127, kFirstPlain = 32;
    switch (character) {
    case kCtrlC:
        return {Key::kInterrupt, {}};
    case L'\n':
    case L'\r':
        return {Key::kEnter, {}};
    case kCtrlH:
    case kDelete:
        return {Key::kBackspace, {}};
    case kEscape:
        return {Key::kEscape, {}};
    default:
        return character < kFirstPlain ? KeyPress{} : Character(character);
    }
}

KeyPress OfFunction(wint_t code)
{
    static constexpr std::array<std::pair<int, Key>, 8> kKeys{{{KEY_UP, Key::kUp},
                                                               {KEY_DOWN, Key::kDown},
                                                               {KEY_PPAGE, Key::kPageUp},
                                                               {KEY_NPAGE, Key::kPageDown},
                                                               {KEY_HOME, Key::kHome},
                                                               {KEY_END, Key::kEnd},
                                                               {KEY_ENTER, Key::kEnter},
                                                               {KEY_BACKSPACE, Key::kBackspace}}};
    for (const auto& [its, key] : kKeys)
        if (static_cast<int>(code) == its) return {key, {}};
    return {};
}

class FullScreen final : public Screen {
public:
    explicit FullScreen(bool colours) : m_screen(::newterm(nullptr, stdout, stdin))
    {
        if (m_screen == nullptr) return;
        // A terminal that can do nothing has a description, too.
        m_hasCursor = ::tigetstr("cup") != nullptr;
        if (!m_hasCursor) return;
        ::raw();
        ::noecho();
        ::nonl();
        ::keypad(stdscr, TRUE);
        ::nodelay(stdscr, TRUE);
        ::set_escdelay(kEscapeDelayMs);
        ::curs_set(0);
        m_hasColours = colours && ::has_colors() && ::start_color() == OK && ::use_default_colors() == OK;
        if (!m_hasColours) return;
        constexpr short kSame = -1;
        ::init_pair(kBrokenPair, COLOR_RED, kSame);
        ::init_pair(kWarningPair, COLOR_YELLOW, kSame);
    }
    ~FullScreen() override
    {
        if (m_screen == nullptr) return;
        ::endwin();
        ::delscreen(m_screen);
    }

    [[nodiscard]] bool IsOpen() const { return m_screen != nullptr && m_hasCursor; }

    [[nodiscard]] ScreenSize Size() const override
    {
        return {static_cast<std::size_t>(getmaxx(stdscr)), static_cast<std::size_t>(getmaxy(stdscr))};
    }
    void Resize() override
    {
        winsize size{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
            ::resizeterm(size.ws_row, size.ws_col);
    }
    [[nodiscard]] Charset Characters() const override
    {
        return std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0 ? Charset::kUtf8 : Charset::kAscii;
    }
    void Draw(const std::vector<StyledLine>& lines) override
    {
        ::werase(stdscr);
        for (std::size_t row = 0; row < lines.size(); ++row) {
            ::wmove(stdscr, static_cast<int>(row), 0);
            for (const StyledText& text : lines[row]) {
                ::wattrset(stdscr, static_cast<int>(AttributesOf(text.style)));
                ::waddnstr(stdscr, text.text.c_str(), -1);
            }
        }
        ::wattrset(stdscr, static_cast<int>(A_NORMAL));
        ::wrefresh(stdscr);
    }
    std::optional<KeyPress> Read() override
    {
        wint_t character = 0;
        const int kind = ::wget_wch(stdscr, &character);
        if (kind == ERR) return std::nullopt;
        return kind == KEY_CODE_YES ? OfFunction(character) : OfControl(character);
    }
    [[nodiscard]] int Descriptor() const override { return STDIN_FILENO; }

private:
    [[nodiscard]] attr_t AttributesOf(const TextStyle& style) const
    {
        attr_t attributes = A_NORMAL;
        if (style.bold) attributes |= A_BOLD;
        if (style.reverse) attributes |= A_REVERSE;
        if (style.tone == Tone::kPlain) return attributes;
        if (!m_hasColours) return attributes | A_BOLD;
        return attributes |
               static_cast<attr_t>(COLOR_PAIR(style.tone == Tone::kBroken ? kBrokenPair : kWarningPair));
    }

    KeptHandlers m_handlers;  // before the screen, which changes them
    SCREEN* m_screen;
    bool m_hasCursor = false;
    bool m_hasColours = false;
};

}  // namespace

std::unique_ptr<Screen> OpenFullScreen(bool colours)
{
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO)) return nullptr;
    std::setlocale(LC_CTYPE, "");
    std::fflush(stdout);
    auto screen = std::make_unique<FullScreen>(colours);
    if (!screen->IsOpen()) return nullptr;
    return screen;
}

}  // namespace cli
