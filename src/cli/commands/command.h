// SPDX-License-Identifier: Apache-2.0
// A command of the shell as a row of a table: what it is called, what it takes, what it does. Usage
// texts, messages and the manual's list of commands come from the rows.

#ifndef CLI_COMMANDS_COMMAND_H
#define CLI_COMMANDS_COMMAND_H

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/data/words.h"
#include "cli/screens/style.h"

struct ly_ctx;
namespace netconf {
class Client;
}

namespace cli {

class Screen;

enum class ArgumentKind {
    kChoice,   // one of the words in `text`, which '|' separates; one that is optional may be missing before
               // others
    kPath,     // words of a path, one or more; none if it is optional
    kFile,     // one word
    kNumber,   // one word of digits
    kName,     // one word
    kFlag,     // the word in `text`
    kText,     // the first word of `text`, which is a keyword, and one word behind it
    kCommand,  // words of a command's name
};

/// What an argument may be the name of, so that completion knows which there are.
enum class Nameable { kNothing, kInterface, kCollector, kCheckpoint, kCommit, kSession };

struct Argument {
    ArgumentKind kind;
    std::string_view text;  // as the usage line shows it
    bool optional = false;
    std::string_view help = {};  // of its word, as completion shows it; of kChoice of each, '|' between
    Nameable names = Nameable::kNothing;
};

/// The words of a kChoice.
std::vector<std::string> ChoicesOf(const Argument& argument);

/// The form of a command's output, chosen behind '|'.
enum class Format { kText, kJson, kXml, kSet, kInherited };

/// What a command has to have before it runs.
enum Need : unsigned {
    kNothing = 0,
    kSession = 1,
    kYang = 2,
    kMode = 4,     // at a prompt, configuration mode
    kStreams = 8,  // nothing: it writes as it goes, so that its output is not kept back
};

/// Which forms of output a command knows beside text.
enum class Forms {
    kNone,           // no '|'
    kReport,         // JSON of what was done
    kState,          // JSON, XML
    kConfiguration,  // JSON, XML, set, text with defaults
};

/// The arguments that were given, by kind; empty if there are none.
struct Arguments {
    std::string choice;
    std::vector<std::string> words;            // kPath, kCommand
    std::string text;                          // kFile, kNumber, kName
    std::map<std::string, std::string> named;  // kText, by its keyword
    bool hasFlag = false;

    /// The text behind the keyword; empty if there is none.
    [[nodiscard]] std::string Named(const std::string& keyword) const
    {
        const auto found = named.find(keyword);
        return found == named.end() ? std::string() : found->second;
    }
};

/// Which candidate the shell's session uses.
enum class CandidateUse {
    kShared,
    kPrivate,    // one of its own
    kExclusive,  // the shared one, locked
};

/// What of the shell outlives a command.
struct ShellState {
    bool talks = false;  // with a person, at a prompt
    bool left = false;   // a command has ended the shell
    bool waits = false;  // a confirmed commit would be rolled back with the session's end
    CandidateUse candidate = CandidateUse::kShared;
    bool configures = false;         // in configuration mode; only a person at a prompt needs to be
    std::vector<std::string> place;  // the words in front of each path
    std::size_t edits = 0;  // of the candidate since a command of this shell has made it equal running
    int status = 0;         // the exit status, of a command that answers a question with it
};

/// What a handler works with.
struct Call {
    const Arguments& arguments;
    Format format;
    netconf::Client* session;  // not null with kSession
    const ly_ctx* yang;        // not null with kYang
    std::ostream& out;         // for results
    std::ostream& err;         // for what was done, and warnings
    ShellState& shell;
    std::size_t width;  // characters of a line of text for people
    /// Opens a session for this command alone. Throws netconf::ConnectionError.
    const std::function<std::unique_ptr<netconf::Client>()>& connect;
    /// Takes the terminal to fill it; null, or without a result, if the output is no terminal that can be
    /// filled.
    std::function<std::unique_ptr<Screen>()> openScreen = {};
    Style style{};  // of text on `out`
};

struct Command {
    std::string_view name;  // one word or more
    std::vector<Argument> arguments;
    std::string_view help;  // one sentence
    unsigned needs;
    Forms forms;
    void (*run)(Call&);  // throws Error
};

/// All commands, in the order in which they are listed. Nothing else knows which there are.
std::span<const Command> Commands();

/// "load merge FILE", "show sflow [collectors|interfaces|agent] [| json]".
std::string Usage(const Command& command);

/// What was typed, understood.
struct Invocation {
    const Command* command = nullptr;
    Arguments arguments;
    Format format = Format::kText;
};

/// Finds the command of the words, which are at least one, and fits its arguments. Throws Error that ends
/// with the usage or with the words that are possible.
Invocation Understand(std::span<const Command> commands, const std::vector<Word>& words);

/// The words with those of commands' names and choices, which may be cut where one remains, written out.
/// Throws Error for a word that may be several.
std::vector<std::string> WrittenOut(std::span<const Command> commands, std::vector<std::string> words);

/// The command whose whole name the words, written out, begin with; the longest. Null if there is none.
const Command* CommandOf(std::span<const Command> commands, const std::vector<std::string>& words);

/// The words of names and choices that may come behind these, written out, in alphabetical order.
std::vector<std::string> WordsAt(std::span<const Command> commands, const std::vector<std::string>& words);

/// The usage lines, with what they do, of the commands whose names begin with these words; throws Error
/// for words with which none begins. Lines have at most `width` characters.
std::string Help(std::span<const Command> commands, const std::vector<std::string>& words, std::size_t width);

}  // namespace cli

#endif
