// SPDX-License-Identifier: Apache-2.0
// Runs commands: finds what each needs, runs it, says what went wrong. The only place that prints
// errors.

#ifndef CLI_SHELL_SHELL_H
#define CLI_SHELL_SHELL_H

#include <functional>
#include <iosfwd>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "cli/commands/command.h"
#include "cli/commands/standing.h"
#include "cli/screens/style.h"
#include "cli/shell/completion.h"
#include "cli/shell/line_source.h"
#include "netconf/client.h"

namespace cli {

/// How a shell comes by what its commands need; each is called when the first command needs it.
struct Environment {
    std::function<std::unique_ptr<netconf::Client>()> connect;  // throws netconf::ConnectionError
    std::function<const ly_ctx*()> loadYang;                    // throws cdb::FatalError
    std::function<std::size_t()> width = {};  // of a line on the terminal; null if there is none
    std::string who = "swcli";                // before the mode in the prompt
    Style style{};                            // of results and prompts
    bool asksStanding = false;                // of the database, for the prompt
    /// Shows a long text to a person (pager.h); false if it could not. Null: as any other text.
    std::function<bool(const std::string& text)> page = {};
    std::function<std::size_t()> height = {};  // lines of the terminal; not null with `page`
    /// Takes the terminal for a command that fills it (full_screen.h). Null: there is none.
    std::function<std::unique_ptr<Screen>()> openScreen = {};
};

class Shell {
public:
    /// Characters of a line where there is no terminal.
    static constexpr std::size_t kWidth = 79;

    Shell(std::span<const Command> commands, Environment environment, std::ostream& out, std::ostream& err);

    /// Runs one command; nothing for a text without words. False after an error, which has been printed
    /// as "error: WHERE: COMMAND: what is wrong" (`where` may be empty).
    bool Run(std::string_view command, std::string_view where = {}) { return Run(command, where, false); }

    /// From the first session on the candidate is locked, and what is not committed in the end is taken back.
    void LockCandidate() { m_exclusive = true; }

    /// Runs the commands of an argument of -c up to the first error.
    bool RunAll(std::string_view commands);

    /// Runs one command a line up to the first error; `name` is the input's in messages.
    bool RunLines(std::istream& input, std::string_view name);

    /// Runs one command a line, with a prompt before each, to the end of input; errors do not end it. A
    /// person begins in operational mode.
    void Converse(LineSource& lines);

    /// What may come at the end of a line that is being typed.
    Completion Complete(std::string_view line);

    /// What the last command that answers a question with its status has answered; 0 without one.
    [[nodiscard]] int Status() const { return m_state.status; }

    /// Whether a command has ended the shell.
    [[nodiscard]] bool Left() const { return m_state.left; }

private:
    class Patience;
    bool Run(std::string_view command, std::string_view where, bool mayHaveComment);
    void Execute(std::string_view command);
    /// `invocation` must outlive it.
    Call MakeCall(const Invocation& invocation);
    Call MakeCall(const Invocation& invocation, std::ostream& out);
    /// A screen at a time, if it is longer than one.
    void Show(const std::string& text);
    void Connect();
    /// What ends a wait for the database (netconf::Client::StopAt).
    void StopAt(int descriptor);
    /// After the session was lost: what went with it, to be added to the error.
    std::string TakeLoss();
    /// At the end of the input: leaves a private candidate or a lock, so that what it drops is said, and says
    /// which edits the shared one keeps.
    void Finish(bool done);
    /// Whether the person wants to leave in spite of what is not committed.
    bool MayLeave(LineSource& lines);
    /// For the prompt. That the database is away is said once.
    Standing NowStanding();
    void LoadYang();
    /// How many edits of this session the candidate keeps; 0 if that can't be told.
    std::size_t Uncommitted();

    std::span<const Command> m_commands;
    Environment m_environment;
    std::ostream& m_out;
    std::ostream& m_err;
    std::unique_ptr<netconf::Client> m_session;
    int m_stop = -1;
    bool m_exclusive = false;
    bool m_wasAway = false;  // no connection could be made, or the last one is lost
    std::size_t m_lost = 0;  // edits of a session that was lost, until the next one tells what became of them
    const ly_ctx* m_yang = nullptr;
    ShellState m_state;
};

}  // namespace cli

#endif
