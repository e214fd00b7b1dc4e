// SPDX-License-Identifier: Apache-2.0
#include "system/terminal.h"

#include <stdexcept>
#include <utility>

namespace system_tests {

Terminal::Terminal(std::filesystem::path dir, const std::map<std::string, std::string>& environment,
                   const std::vector<std::string>& command, TerminalSize size)
    : m_dir(std::move(dir)), m_environment(environment)
{
    std::filesystem::create_directories(m_dir);
    m_environment["TERM"] = "screen";
    m_environment["TMUX"] = "";
    m_environment["LC_ALL"] = "C.UTF-8";
    // Not a daemon: it ends with this object, or with the test.
    m_server = std::make_unique<support::Process>(
        support::Command{.argv = {"tmux", "-u", "-S", (m_dir / "tmux").string(), "-f", "/dev/null", "-D"},
                         .environment = m_environment});
    // Its socket is there before it listens.
    const std::vector<std::string> option{
        "tmux", "-u", "-S", (m_dir / "tmux").string(), "set-option", "-g", "remain-on-exit", "on"};
    support::Await("tmux listens", [&] { return support::Run(m_dir, option, m_environment).status == 0; });
    Tmux({"set-option", "-g", "history-limit", "20000"});
    std::vector<std::string> start{
        "new-session", "-d", "-x", std::to_string(size.columns), "-y", std::to_string(size.rows), "--"};
    start.insert(start.end(), command.begin(), command.end());
    Tmux(start);
}

Terminal::~Terminal()
{
    support::Run(m_dir, {"tmux", "-S", (m_dir / "tmux").string(), "kill-server"}, m_environment);
}

std::string Terminal::Tmux(std::vector<std::string> arguments, const std::string& input)
{
    arguments.insert(arguments.begin(), {"tmux", "-u", "-S", (m_dir / "tmux").string()});
    const auto result = support::Run(m_dir, arguments, m_environment, input);
    if (result.status != 0) throw std::runtime_error("tmux " + arguments[4] + ": " + result.errors);
    return result.output;
}

void Terminal::Type(const std::string& text) { Tmux({"send-keys", "-l", "--", text}); }

void Terminal::Key(const std::string& name) { Tmux({"send-keys", name}); }

void Terminal::Enter(const std::string& text, const std::string& shows)
{
    Type(text);
    Key("Enter");
    Awaits(shows);
}

void Terminal::Paste(const std::string& text, bool mayMark)
{
    Tmux({"load-buffer", "-"}, text);
    if (mayMark)
        Tmux({"paste-buffer", "-p"});
    else
        Tmux({"paste-buffer"});
}

std::string Terminal::Screen()
{
    std::string text = Tmux({"capture-pane", "-p"});
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

std::string Terminal::Transcript()
{
    std::string text = Tmux({"capture-pane", "-p", "-e", "-S", "-"});
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

std::string Terminal::LastRow()
{
    const std::string screen = Screen();
    return screen.substr(screen.rfind('\n') + 1);
}

void Terminal::Awaits(const std::string& text)
{
    if (!support::Becomes([&] { return Screen().find(text) != std::string::npos; }))
        throw support::TimedOut("\"" + text + "\" is not shown:\n" + Screen());
}

void Terminal::AwaitsLast(const std::string& row)
{
    if (!support::Becomes([&] { return LastRow() == row; }))
        throw support::TimedOut("\"" + row + "\" is not the last row:\n" + Screen());
}

void Terminal::Clear() { Key("C-l"); }

void Terminal::Forget() { Tmux({"clear-history"}); }

void Terminal::Resize(TerminalSize size)
{
    Tmux({"resize-window", "-x", std::to_string(size.columns), "-y", std::to_string(size.rows)});
}

bool Terminal::Runs() { return Tmux({"display-message", "-p", "#{pane_dead}"}) == "0\n"; }

}  // namespace system_tests
