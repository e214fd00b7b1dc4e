// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/command.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>

#include "cli/data/error.h"
#include "cli/screens/text_width.h"
#include "cli/screens/wrapped_text.h"

namespace cli {
namespace {

using Texts = std::vector<std::string>;

Texts SplitAt(std::string_view text, char separator)
{
    Texts parts;
    return boost::split(parts, text, [separator](char each) { return each == separator; });
}

/// How many of the name's words the words begin with.
std::size_t CommonBegin(const Texts& name, const Texts& words)
{
    const auto [inName, inWords] = std::mismatch(name.begin(), name.end(), words.begin(), words.end());
    return static_cast<std::size_t>(inName - name.begin());
}

/// The words that may begin the arguments of a command whose name is complete; nullopt if any word may.
std::optional<Texts> FirstWords(const Command& command)
{
    Texts words;
    for (const Argument& argument : command.arguments) {
        if (argument.kind == ArgumentKind::kChoice) {
            const Texts choices = ChoicesOf(argument);
            words.insert(words.end(), choices.begin(), choices.end());
        } else if (argument.kind == ArgumentKind::kFlag || argument.kind == ArgumentKind::kText) {
            words.push_back(SplitAt(argument.text, ' ')[0]);
        } else {
            return std::nullopt;
        }
        if (!argument.optional) break;
    }
    return words;
}

/// What may stand at that position of commands whose names begin with the words before it.
struct Position {
    Texts words;
    bool any = false;  // a word of an argument stands here, which is taken as it is
};

Position PossibleAt(std::span<const Command> commands, const Texts& words, std::size_t at)
{
    Position position;
    for (const Command& command : commands) {
        const Texts name = SplitAt(command.name, ' ');
        if (CommonBegin(name, words) < std::min(at, name.size())) continue;
        if (at < name.size()) {
            position.words.push_back(name[at]);
        } else if (at == name.size()) {
            const auto first = FirstWords(command);
            if (first) position.words.insert(position.words.end(), first->begin(), first->end());
            position.any = position.any || !first;
        }
    }
    std::ranges::sort(position.words);
    position.words.erase(std::unique(position.words.begin(), position.words.end()), position.words.end());
    return position;
}

/// The command whose whole name the words begin with. A longer name goes before a shorter one.
const Command& Find(std::span<const Command> commands, const Texts& words)
{
    const Command* best = nullptr;
    std::size_t bestSize = 0;
    std::size_t known = 0;  // words that begin some command's name
    Texts next;             // what may stand behind them
    for (const Command& command : commands) {
        const Texts name = SplitAt(command.name, ' ');
        const std::size_t common = CommonBegin(name, words);
        if (common == name.size() && common > bestSize) {
            best = &command;
            bestSize = common;
        }
        if (common > known) next.clear();
        known = std::max(known, common);
        if (common == known && common < name.size() &&
            std::find(next.begin(), next.end(), name[common]) == next.end())
            next.push_back(name[common]);
    }
    if (best) return *best;
    const std::string choices = boost::join(next, ", ");
    if (known == words.size()) throw Error("the command is not complete; possible: " + choices);
    if (known == 0) throw Error("unknown command \"" + words[0] + "\"; possible: " + choices);
    throw Error("\"" + words[known] + "\" is unknown here; possible: " + choices);
}

class Fitting {
public:
    Fitting(const Command& command, Texts words) : m_command(command), m_words(std::move(words)) {}

    Arguments Run()
    {
        for (const Argument& argument : m_command.arguments) Take(argument);
        if (!AtEnd()) Refuse("\"" + m_words[m_used] + "\" is unknown here");
        return std::move(m_arguments);
    }

private:
    void Take(const Argument& argument)
    {
        switch (argument.kind) {
        case ArgumentKind::kChoice:
            return TakeChoice(argument);
        case ArgumentKind::kText:
            return TakeText(argument);
        case ArgumentKind::kFile:
            if (AtEnd()) Refuse("a file's name is missing");
            m_arguments.text = m_words[m_used++];
            return;
        case ArgumentKind::kNumber:
        case ArgumentKind::kName:
            return TakeWord(argument);
        case ArgumentKind::kFlag:
            m_arguments.hasFlag = !AtEnd() && m_words[m_used] == argument.text;
            if (m_arguments.hasFlag) ++m_used;
            return;
        case ArgumentKind::kPath:
        case ArgumentKind::kCommand:
            if (AtEnd() && !argument.optional)
                Refuse(argument.kind == ArgumentKind::kPath ? "a path is missing" : "a command is missing");
            TakeWords(argument);
        }
    }

    /// All words, but for a flag at their end that may stand behind them.
    void TakeWords(const Argument& argument)
    {
        const Argument* const next = &argument == &m_command.arguments.back() ? nullptr : &argument + 1;
        const bool flag =
            next != nullptr && next->kind == ArgumentKind::kFlag && !AtEnd() && m_words.back() == next->text;
        const std::size_t end = m_words.size() - (flag ? 1 : 0);
        m_arguments.words.assign(m_words.begin() + static_cast<std::ptrdiff_t>(m_used),
                                 m_words.begin() + static_cast<std::ptrdiff_t>(end));
        m_used = end;
    }

    void TakeChoice(const Argument& argument)
    {
        const Texts choices = ChoicesOf(argument);
        const bool isLast = &argument == &m_command.arguments.back();
        const bool isThere = !AtEnd() && std::ranges::find(choices, m_words[m_used]) != choices.end();
        if (argument.optional && !isThere && (AtEnd() || !isLast)) return;
        if (AtEnd()) Refuse("one of " + boost::join(choices, ", ") + " is missing");
        const std::string& word = m_words[m_used];
        if (!isThere) Refuse("\"" + word + "\" is none of " + boost::join(choices, ", "));
        m_arguments.choice = word;
        ++m_used;
    }

    void TakeWord(const Argument& argument)
    {
        if (AtEnd() && argument.optional) return;
        const std::string what(argument.text);
        if (AtEnd()) Refuse(what + " is missing");
        const std::string& word = m_words[m_used];
        if (argument.optional && IsKeywordBehind(argument, word)) return;
        const bool isNumber = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
        if (argument.kind == ArgumentKind::kNumber && !isNumber) Refuse("\"" + word + "\" is no number");
        m_arguments.text = word;
        ++m_used;
    }

    /// Whether the word begins an argument that may stand behind this one.
    [[nodiscard]] bool IsKeywordBehind(const Argument& argument, const std::string& word) const
    {
        return std::any_of(&argument + 1, m_command.arguments.data() + m_command.arguments.size(),
                           [&word](const Argument& each) {
                               if (each.kind == ArgumentKind::kChoice) {
                                   const Texts choices = ChoicesOf(each);
                                   return std::ranges::find(choices, word) != choices.end();
                               }
                               return each.kind == ArgumentKind::kText && SplitAt(each.text, ' ')[0] == word;
                           });
    }

    void TakeText(const Argument& argument)
    {
        const Texts parts = SplitAt(argument.text, ' ');
        if (AtEnd() || m_words[m_used] != parts[0]) {
            if (argument.optional) return;
            Refuse("\"" + parts[0] + "\" is missing");
        }
        ++m_used;
        if (AtEnd()) Refuse("a text is missing behind \"" + parts[0] + "\"");
        m_arguments.named[parts[0]] = m_words[m_used++];
        const bool last = &argument == &m_command.arguments.back();
        if (last && !AtEnd()) Refuse("put a text of several words in double quotes");
    }

    [[nodiscard]] bool AtEnd() const { return m_used == m_words.size(); }
    [[noreturn]] void Refuse(const std::string& what) const
    {
        throw Error(what + "; usage: " + Usage(m_command));
    }

    const Command& m_command;
    Texts m_words;  // behind the command's name
    std::size_t m_used = 0;
    Arguments m_arguments;
};

std::optional<Format> FormatOf(const Texts& words)
{
    if (words == Texts{"json"} || words == Texts{"display", "json"}) return Format::kJson;
    if (words == Texts{"display", "xml"}) return Format::kXml;
    if (words == Texts{"display", "set"}) return Format::kSet;
    if (words == Texts{"display", "text"}) return Format::kText;
    if (words == Texts{"display", "inherited"}) return Format::kInherited;
    return std::nullopt;
}

Format FormatFor(const Command& command, const Texts& words)
{
    const std::optional<Format> format = FormatOf(words);
    const bool isOfConfiguration = format == Format::kSet || format == Format::kInherited;
    const bool known = format && command.forms != Forms::kNone &&
                       (!isOfConfiguration || command.forms == Forms::kConfiguration) &&
                       (*format == Format::kJson || command.forms != Forms::kReport);
    if (!known)
        throw Error("\"" + boost::join(words, " ") +
                    "\" is no form of this command's output; usage: " + Usage(command));
    return *format;
}

}  // namespace

std::vector<std::string> ChoicesOf(const Argument& argument) { return SplitAt(argument.text, '|'); }

std::string Usage(const Command& command)
{
    std::string text(command.name);
    for (const Argument& argument : command.arguments) {
        text += ' ';
        text += argument.optional ? "[" + std::string(argument.text) + "]" : std::string(argument.text);
    }
    if (command.forms == Forms::kState || command.forms == Forms::kReport) text += " [| json]";
    if (command.forms == Forms::kConfiguration) text += " [| display text|json|xml|set|inherited]";
    return text;
}

std::vector<std::string> WrittenOut(std::span<const Command> commands, std::vector<std::string> words)
{
    for (std::size_t at = 0; at < words.size(); ++at) {
        const Position position = PossibleAt(commands, words, at);
        if (position.words.empty()) break;
        if (position.any || std::ranges::binary_search(position.words, words[at])) continue;
        Texts begun;
        std::ranges::copy_if(position.words, std::back_inserter(begun), [&](const std::string& possible) {
            return !words[at].empty() && possible.starts_with(words[at]);
        });
        // Where one begins all others it is meant: interface, beside interfaces.
        const bool isBegin = std::ranges::all_of(
            begun, [&](const std::string& each) { return each.starts_with(begun.front()); });
        if (begun.size() > 1 && !isBegin)
            throw Error("\"" + words[at] + "\" may be " + boost::join(begun, ", "));
        if (begun.empty()) break;
        words[at] = begun.front();
    }
    return words;
}

const Command* CommandOf(std::span<const Command> commands, const std::vector<std::string>& words)
{
    const Command* best = nullptr;
    std::size_t most = 0;
    for (const Command& command : commands) {
        const Texts name = SplitAt(command.name, ' ');
        if (CommonBegin(name, words) < name.size() || name.size() <= most) continue;
        best = &command;
        most = name.size();
    }
    return best;
}

std::vector<std::string> WordsAt(std::span<const Command> commands, const std::vector<std::string>& words)
{
    return PossibleAt(commands, words, words.size()).words;
}

Invocation Understand(std::span<const Command> commands, const std::vector<Word>& words)
{
    const auto pipe =
        std::find_if(words.begin(), words.end(), [](const Word& word) { return word.IsPipe(); });
    Texts left;
    Texts right;
    std::for_each(words.begin(), pipe, [&](const Word& word) { left.push_back(word.text); });
    if (left.empty()) throw Error("a command is missing before |");

    Invocation invocation;
    left = WrittenOut(commands, std::move(left));
    invocation.command = &Find(commands, left);
    if (pipe != words.end()) {
        std::for_each(pipe + 1, words.end(), [&](const Word& word) { right.push_back(word.text); });
        invocation.format = FormatFor(*invocation.command, right);
    }
    const auto nameSize = static_cast<std::ptrdiff_t>(SplitAt(invocation.command->name, ' ').size());
    left.erase(left.begin(), left.begin() + nameSize);
    invocation.arguments = Fitting(*invocation.command, std::move(left)).Run();
    return invocation;
}

std::string Help(std::span<const Command> commands, const std::vector<std::string>& words, std::size_t width)
{
    const std::string usageIndent(kIndent, ' ');
    const std::string helpIndent(3 * kIndent, ' ');
    std::string text;
    for (const Command& command : commands)
        if (CommonBegin(SplitAt(command.name, ' '), words) == words.size())
            text += Wrapped(usageIndent + Usage(command), 2 * kIndent, width) + "\n" +
                    Wrapped(helpIndent + std::string(command.help), helpIndent.size(), width) + "\n";
    if (text.empty())
        throw Error("no command begins with \"" + boost::join(words, " ") + "\"; help lists all");
    return text;
}

}  // namespace cli
