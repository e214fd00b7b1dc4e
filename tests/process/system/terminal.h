// SPDX-License-Identifier: Apache-2.0
// A real terminal: a program in tmux, typed at, and what its screen shows.

#ifndef SYSTEM_TERMINAL_H
#define SYSTEM_TERMINAL_H

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/process.h"

namespace system_tests {

struct TerminalSize {
    int columns = 80, rows = 24;
};

class Terminal {
public:
    /// Starts the command on a screen of that size. `dir` is for the server's socket; what the
    /// program finds in its environment is `environment` beside the test's own.
    Terminal(std::filesystem::path dir, const std::map<std::string, std::string>& environment,
             const std::vector<std::string>& command, TerminalSize size = {});
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Types the text as it is.
    void Type(const std::string& text);
    /// A key by tmux's name: Enter, C-c, Home, Up, Tab.
    void Key(const std::string& name);
    /// Types it, with Enter behind it, and waits until what `shows` is on the screen.
    void Enter(const std::string& text, const std::string& shows);
    /// Pastes the text, marked as a paste if the program asked for marks.
    void Paste(const std::string& text, bool mayMark = true);

    /// The rows, without blanks at their ends and empty rows at the end.
    std::string Screen();
    /// The same with the rows that have left the screen, and with the escape sequences of colours.
    std::string Transcript();
    /// Throws support::TimedOut with the screen in it.
    void Awaits(const std::string& text);
    /// Waits until the last row is this one.
    void AwaitsLast(const std::string& row);
    void Clear();
    /// Forgets the rows that have left the screen.
    void Forget();
    /// Gives the screen another size, as a person who draws at its corner.
    void Resize(TerminalSize size);
    /// Whether the program still runs.
    bool Runs();

private:
    std::string Tmux(std::vector<std::string> arguments, const std::string& input = {});
    std::string LastRow();

    std::filesystem::path m_dir;
    std::map<std::string, std::string> m_environment;
    std::unique_ptr<support::Process> m_server;
};

}  // namespace system_tests

#endif
