// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/shell.h"

#include <exception>
#include <istream>
#include <ostream>
#include <utility>

#include "base/text.h"
#include "cli/data/error.h"
#include "cli/data/words.h"

namespace cli {
namespace {

constexpr std::size_t kLongestQuoted = 120;
constexpr std::string_view kPrompt = "swcli> ";
constexpr std::string_view kPrivatePrompt = "swcli (private)> ";

/// The command as messages name it: one line, cut to kLongestQuoted bytes.
std::string Named(std::string_view command)
{
    command = command.substr(0, command.find_last_not_of(" \t\r\n") + 1);
    if (command.size() <= kLongestQuoted) return base::Printable(command);
    return base::Printable(command.substr(0, kLongestQuoted)) + "...";
}

}  // namespace

Shell::Shell(std::span<const Command> commands, Environment environment, std::ostream& out, std::ostream& err)
    : m_commands(commands), m_environment(std::move(environment)), m_out(out), m_err(err)
{
}

bool Shell::Run(std::string_view command, std::string_view where, bool mayHaveComment)
{
    std::string problem;
    try {
        if (mayHaveComment) command = WithoutComment(command);
        Execute(command);
        return true;
    } catch (const netconf::ConnectionError& error) {
        m_session.reset();  // the next command connects again
        m_state.waits = false;
        problem = error.what();
        if (std::exchange(m_state.isPrivate, false))
            problem += "; the private candidate has ended with the session";
    } catch (const std::exception& error) {
        problem = error.what();
    }
    m_out.flush();
    m_err << "error: " << where << (where.empty() ? "" : ": ") << Named(command) << ": " << problem
          << std::endl;
    return false;
}

bool Shell::RunAll(std::string_view commands)
{
    std::vector<std::string> list;
    try {
        list = SplitCommands(commands);
    } catch (const Error& error) {
        m_err << "error: " << error.what() << std::endl;
        return false;
    }
    bool done = true;
    for (const std::string& command : list) {
        if (m_state.left || !done) break;
        done = Run(command);
    }
    ClosePrivate();
    return done;
}

bool Shell::RunLines(std::istream& input, std::string_view name)
{
    std::string line;
    bool done = true;
    for (std::size_t number = 1; done && !m_state.left && std::getline(input, line); ++number)
        done = Run(line, std::string(name) + ":" + std::to_string(number), true);
    ClosePrivate();
    if (!done || !input.bad()) return done;
    m_err << "error: can't read " << name << " to its end" << std::endl;
    return false;
}

void Shell::Converse(std::istream& input)
{
    m_state.talks = true;
    std::string line;
    while (!m_state.left && m_out << (m_state.isPrivate ? kPrivatePrompt : kPrompt) << std::flush &&
           std::getline(input, line))
        Run(line, {}, true);
    if (!m_state.left) m_out << '\n';
    if (m_state.waits)
        m_err << "warning: what still waits for its confirmation is rolled back now, as this session ends; "
                 "\"commit "
                 "confirmed SECONDS persist ID\" outlives it"
              << std::endl;
    ClosePrivate();
}

void Shell::ClosePrivate()
{
    if (m_state.isPrivate) Run("configure shared");
}

void Shell::Execute(std::string_view command)
{
    const std::vector<Word> words = SplitWords(command);
    if (words.empty()) return;
    const Invocation invocation = Understand(m_commands, words);
    const unsigned needs = invocation.command->needs;
    if ((needs & kYang) && !m_yang) m_yang = m_environment.loadYang();
    if ((needs & kSession) && !m_session) m_session = m_environment.connect();
    Call call{invocation.arguments,
              invocation.format,
              m_session.get(),
              m_yang,
              m_out,
              m_err,
              m_state,
              m_environment.width ? m_environment.width() : kWidth,
              m_environment.connect};
    invocation.command->run(call);
}

}  // namespace cli
