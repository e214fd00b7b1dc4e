// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/shell.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <istream>
#include <optional>
#include <ostream>
#include <sstream>
#include <utility>

#include "base/text.h"
#include "cli/commands/candidate_use.h"
#include "cli/commands/interrupt.h"
#include "cli/commands/keys.h"
#include "cli/data/error.h"
#include "cli/data/words.h"
#include "cli/screens/counted.h"
#include "cli/shell/pipes.h"
#include "cli/shell/prompt.h"

namespace cli {
namespace {

constexpr std::size_t kLongestQuoted = 120;

/// The command as messages name it: one line, cut to kLongestQuoted bytes.
std::string Named(std::string_view command)
{
    command = command.substr(0, command.find_last_not_of(" \t\r\n") + 1);
    if (command.size() <= kLongestQuoted) return base::Printable(command);
    return base::Printable(command.substr(0, kLongestQuoted)) + "...";
}

}  // namespace

/// While a person waits for the database, Ctrl-C ends the wait, and neither the shell nor its session.
class Shell::Patience {
public:
    explicit Patience(Shell& shell) : m_shell(shell)
    {
        if (!shell.m_state.talks) return;
        m_interrupt.emplace();
        shell.StopAt(m_interrupt->Descriptor());
    }
    ~Patience() { m_shell.StopAt(-1); }
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

private:
    Shell& m_shell;
    std::optional<Interrupt> m_interrupt;
};

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
        problem = error.what() + TakeLoss();
    } catch (const netconf::Stopped&) {
        problem = "stopped: the reply is not waited for, and what was asked for may still be done";
    } catch (const std::exception& error) {
        problem = error.what();
    }
    m_out.flush();
    // A person at a prompt has just typed it.
    const std::string named = m_state.talks ? std::string() : Named(command) + ": ";
    m_err << "error: " << where << (where.empty() ? "" : ": ") << named << problem << std::endl;
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
    Finish(done);
    return done;
}

bool Shell::RunLines(std::istream& input, std::string_view name)
{
    std::string line;
    bool done = true;
    for (std::size_t number = 1; done && !m_state.left && std::getline(input, line); ++number)
        done = Run(line, std::string(name) + ":" + std::to_string(number), true);
    Finish(done);
    if (!done || !input.bad()) return done;
    m_err << "error: can't read " << name << " to its end" << std::endl;
    return false;
}

void Shell::Converse(LineSource& lines)
{
    m_state.talks = true;
    while (!m_state.left) {
        const auto line =
            lines.Read(PromptText(m_environment.who, m_state, NowStanding(), m_environment.style));
        if (!line) break;
        Run(*line, {}, true);
        if (m_state.left) m_state.left = MayLeave(lines);
    }
    if (!m_state.left) m_out << '\n';
    if (m_state.waits)
        m_err << "warning: what still waits for its confirmation is rolled back now, as this session ends; "
                 "\"commit confirmed SECONDS persist ID\" outlives it"
              << std::endl;
    Finish(true);
}

bool Shell::MayLeave(LineSource& lines)
{
    const std::size_t edits = Uncommitted();
    if (edits == 0) return true;
    m_state.edits = 0;  // has been said
    const auto answer = lines.Read("The candidate keeps " + Counted(edits, "edit") + " that " +
                                   (edits == 1 ? "is" : "are") + " not committed. Leave? [y/N] ");
    return !answer || *answer == "y" || *answer == "yes";
}

Standing Shell::NowStanding()
{
    if (!m_environment.asksStanding) return {};
    constexpr std::chrono::milliseconds kPatience{300};
    std::string problem;
    try {
        // A command tries again; a prompt does not, for that takes time.
        if (!m_session && m_wasAway) return {.isAway = true};
        if (!m_session) Connect();
        LoadYang();
        const auto reply = m_session->CallWithin(StandingRequest(), kPatience);
        const Invocation none;
        return reply ? StandingOf(MakeCall(none), *reply) : Standing{.isLate = true};
    } catch (const netconf::ConnectionError& error) {
        problem = error.what() + TakeLoss();
        m_wasAway = true;
    } catch (const std::exception& error) {
        problem = error.what();
        m_environment.asksStanding = false;
    }
    m_err << "warning: " << problem << std::endl;
    return {.isAway = m_wasAway};
}

void Shell::LoadYang()
{
    if (!m_yang) m_yang = m_environment.loadYang();
}

Completion Shell::Complete(std::string_view line)
{
    try {
        LoadYang();
        // A session, and a call on it, once there is something to ask for.
        const auto asking = [this](const auto& request) {
            return [this, &request](const auto& what) {
                if (!m_session) Connect();
                const Invocation none;
                Call call = MakeCall(none);
                return request(call, what);
            };
        };
        return cli::Complete({m_commands, m_yang, m_state, asking(RequestKeys), asking(RequestNames)}, line);
    } catch (const std::exception&) {
        return {};  // what can't be completed is said when it is run
    }
}

void Shell::Finish(bool done)
{
    if (m_state.candidate != CandidateUse::kShared) Run("configure shared");
    const std::size_t edits = Uncommitted();
    if (edits == 0) return;
    const std::string them = edits == 1 ? "it" : "them";
    m_err << "the candidate keeps " << Counted(edits, "edit") << "; "
          << (done ? "commit makes " + them + " effective" : "discard takes " + them + " back") << std::endl;
}

std::size_t Shell::Uncommitted()
{
    if (m_state.edits == 0 || !m_session || m_state.candidate != CandidateUse::kShared) return 0;
    try {
        const Patience patience(*this);
        LoadYang();
        const Invocation none;
        Call call = MakeCall(none);
        return UncommittedEdits(call);
    } catch (const std::exception& error) {
        m_err << "warning: can't tell whether the candidate keeps edits: " << error.what() << std::endl;
        return 0;
    }
}

std::string Shell::TakeLoss()
{
    m_session.reset();  // the next command connects again
    std::string text;
    if (std::exchange(m_state.waits, false)) text = "; what still waited for its confirmation is rolled back";
    m_lost += std::exchange(m_state.edits, 0);
    const CandidateUse lost = std::exchange(m_state.candidate, CandidateUse::kShared);
    if (lost == CandidateUse::kShared) return text;
    // Edits meant for it must not go to the shared one.
    m_state.configures = false;
    m_state.place.clear();
    m_lost = 0;
    return text + (lost == CandidateUse::kPrivate
                       ? "; the private candidate has ended with the session"
                       : "; the lock has ended with the session, and what was not committed is taken back");
}

void Shell::Connect()
{
    m_session = m_environment.connect();
    m_session->StopAt(m_stop);
    m_wasAway = false;
    if (!m_exclusive && m_lost == 0) return;
    LoadYang();
    const Invocation none;
    Call call = MakeCall(none);
    if (m_lost > 0) TellOfLostEdits(call, std::exchange(m_lost, 0));
    if (m_exclusive) UseExclusive(call);
}

void Shell::StopAt(int descriptor)
{
    m_stop = descriptor;
    if (m_session) m_session->StopAt(descriptor);
}

Call Shell::MakeCall(const Invocation& invocation) { return MakeCall(invocation, m_out); }

Call Shell::MakeCall(const Invocation& invocation, std::ostream& out)
{
    return {invocation.arguments,
            invocation.format,
            m_session.get(),
            m_yang,
            out,
            m_err,
            m_state,
            m_environment.width ? m_environment.width() : kWidth,
            m_environment.connect};
}

void Shell::Execute(std::string_view command)
{
    std::vector<Word> words = SplitWords(command);
    if (words.size() > 1 && words.front().text == "run") words.erase(words.begin());
    if (words.empty()) return;
    const Pipes pipes = TakePipes(words);
    const Invocation invocation = Understand(m_commands, pipes.command);
    const unsigned needs = invocation.command->needs;
    if ((needs & kMode) && m_state.talks && !m_state.configures)
        throw Error("it belongs to configuration mode; type configure, then it again");
    std::optional<Patience> patience(std::in_place, *this);
    if ((needs & kSession) && !m_session) Connect();
    if (needs & kYang) LoadYang();
    const bool pages = m_state.talks && m_environment.page && pipes.paged && !(needs & kStreams);
    std::ostringstream text;
    FilteredOutput output(pipes.filters, pages ? text : m_out, m_err);
    Call call = MakeCall(invocation, pipes.filters.empty() ? (pages ? text : m_out) : output.Stream());
    // Filters take plain text.
    if (pipes.filters.empty()) {
        call.style = m_environment.style;
        call.openScreen = m_environment.openScreen;
    }
    // What was written before an error is shown, too.
    std::exception_ptr failure;
    try {
        invocation.command->run(call);
        output.Finish();
    } catch (const netconf::Stopped&) {
        if (needs & kMode) ++m_state.edits;  // for all that is known
        failure = std::current_exception();
    } catch (...) {
        failure = std::current_exception();
    }
    patience.reset();  // a pager's keys are its own
    if (pages) Show(text.str());
    if (failure) std::rethrow_exception(failure);
}

void Shell::Show(const std::string& text)
{
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    if (lines < m_environment.height() || !m_environment.page(text)) m_out << text;
}

}  // namespace cli
