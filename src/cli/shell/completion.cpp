// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/completion.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>

#include "cli/data/error.h"
#include "cli/data/schema_words.h"
#include "cli/data/words.h"
#include "cli/screens/counted.h"
#include "cli/screens/text_table.h"
#include "cli/screens/text_width.h"
#include "cli/screens/wrapped_text.h"
#include "cli/shell/pipes.h"

namespace cli {
namespace {

using Texts = std::vector<std::string>;

/// The commands that may be run now.
std::vector<Command> Runnable(const CompletionContext& context)
{
    std::vector<Command> commands;
    std::ranges::copy_if(context.commands, std::back_inserter(commands), [&](const Command& command) {
        return !(command.needs & kMode) || !context.state.talks || context.state.configures;
    });
    return commands;
}

/// Whether the words are a command of configuration mode, which this is not.
bool IsOfOtherMode(const CompletionContext& context, const std::vector<Word>& words, const std::string& typed)
{
    if (!context.state.talks || context.state.configures) return false;
    Texts texts;
    for (const Word& word : words) texts.push_back(word.text);
    if (texts.empty()) texts.push_back(typed);
    const Command* command = CommandOf(context.commands, WrittenOut(context.commands, std::move(texts)));
    return command != nullptr && (command->needs & kMode) != 0;
}

std::optional<PathUse> UseOf(const Command& command)
{
    if (command.name == "set") return PathUse::kSet;
    if (command.name == "delete") return PathUse::kDelete;
    if (command.name == "edit") return PathUse::kEdit;
    if (command.name == "show configuration") return PathUse::kShow;
    return std::nullopt;
}

std::vector<Choice> Files(const std::string& typed)
{
    const std::filesystem::path path(typed);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    std::vector<Choice> files;
    std::error_code error;
    for (const auto& each : std::filesystem::directory_iterator(folder, error)) {
        std::error_code ignored;
        const bool isFolder = each.is_directory(ignored);
        const std::string name =
            (path.has_parent_path() ? folder / each.path().filename() : each.path().filename()).string();
        files.push_back({name + (isFolder ? "/" : ""), isFolder ? "a directory" : ""});
    }
    std::ranges::sort(files, {}, &Choice::word);
    return files;
}

/// The choices of a path of the configuration, or of names.
std::vector<Choice> PathChoices(const CompletionContext& context, const Command& command, Nameable names,
                                Texts words)
{
    const auto use = UseOf(command);
    if (!use) return context.namesOf(names);
    words.insert(words.begin(), context.state.place.begin(), context.state.place.end());
    Choices choices = ChoicesBehind(context.yang, words, *use);
    if (!choices.keysOf) return choices.words;
    std::vector<Choice> all = context.keysOf(*choices.keysOf);
    std::ranges::move(choices.words, std::back_inserter(all));
    return all;
}

/// What may be written for the argument: what it may name, and how it is called.
std::vector<Choice> NameChoices(const CompletionContext& context, Nameable names, const std::string& called)
{
    std::vector<Choice> choices = context.namesOf(names);
    choices.push_back({"<" + called + ">", {}, true});
    return choices;
}

/// The words without the choice that may stand before a path.
Texts PathIn(const Command& command, Texts words)
{
    const Argument& first = command.arguments.front();
    if (first.kind != ArgumentKind::kChoice || words.empty()) return words;
    const Texts choices = ChoicesOf(first);
    if (std::ranges::find(choices, words.front()) != choices.end()) words.erase(words.begin());
    return words;
}

/// What the word of the argument means; empty if it is none of its words.
std::string HelpOfWord(const Argument& argument, const std::string& word)
{
    if (argument.kind == ArgumentKind::kFlag || argument.kind == ArgumentKind::kText)
        return argument.text.substr(0, argument.text.find(' ')) == word ? std::string(argument.help) : "";
    if (argument.kind != ArgumentKind::kChoice) return {};
    const Texts words = ChoicesOf(argument);
    Texts helps;
    boost::split(helps, argument.help, [](char c) { return c == '|'; });
    const auto at = static_cast<std::size_t>(std::ranges::find(words, word) - words.begin());
    return at < words.size() && at < helps.size() ? helps[at] : std::string();
}

/// How many words have to stand before the argument's.
std::size_t WordsBefore(const Command& command, const Argument& argument)
{
    const std::span<const Argument> before(command.arguments.data(), &argument);
    return static_cast<std::size_t>(std::ranges::count_if(before, [](const Argument& each) {
        return !each.optional && (each.kind == ArgumentKind::kNumber || each.kind == ArgumentKind::kName);
    }));
}

/// Choices of the command's arguments behind `words`; `typed` is the word that is begun.
std::vector<Choice> ArgumentChoices(const CompletionContext& context, const Command& command,
                                    const Texts& words, const std::string& typed)
{
    std::vector<Choice> choices;
    const auto isGiven = [&](std::string_view word) { return std::ranges::find(words, word) != words.end(); };
    std::size_t at = 0;
    for (const Argument& argument : command.arguments) {
        if (words.size() < WordsBefore(command, argument)) break;
        const std::string text(argument.text);
        const std::string keyword = text.substr(0, text.find(' '));
        switch (argument.kind) {
        case ArgumentKind::kPath:
            std::ranges::move(PathChoices(context, command, argument.names, PathIn(command, words)),
                              std::back_inserter(choices));
            break;
        case ArgumentKind::kFlag:
            if (!isGiven(text)) choices.push_back({text, HelpOfWord(argument, text)});
            break;
        case ArgumentKind::kText:
            if (!words.empty() && words.back() == keyword)
                return NameChoices(context, argument.names, text.substr(keyword.size() + 1));
            if (!isGiven(keyword)) choices.push_back({keyword, HelpOfWord(argument, keyword)});
            break;
        case ArgumentKind::kFile:
            if (words.size() == at) std::ranges::move(Files(typed), std::back_inserter(choices));
            break;
        case ArgumentKind::kNumber:
        case ArgumentKind::kName:
            if (words.size() == at)
                std::ranges::move(NameChoices(context, argument.names, text), std::back_inserter(choices));
            break;
        case ArgumentKind::kChoice:
            if (words.size() <= at && std::ranges::none_of(ChoicesOf(argument), isGiven))
                for (const std::string& word : ChoicesOf(argument))
                    choices.push_back({word, HelpOfWord(argument, word)});
            break;
        case ArgumentKind::kCommand:
            break;
        }
        ++at;
    }
    return choices;
}

/// What the command does that ends with the word; else the words that follow it in commands; else what it
/// means as a word of an argument.
std::string HelpFor(std::span<const Command> commands, const Texts& words, const std::string& word)
{
    Texts name = words;
    name.push_back(word);
    const std::string text = boost::join(name, " ");
    for (const Command& command : commands)
        if (command.name == text) return std::string(command.help);
    std::string following = boost::join(WordsAt(commands, name), ", ");
    const std::string before = boost::join(words, " ");
    for (const Command& command : commands)
        if (following.empty() && command.name == before)
            for (const Argument& argument : command.arguments)
                if (std::string help = HelpOfWord(argument, word); !help.empty()) return help;
    return following;
}

/// What may stand behind a pipe; `first`: the first one.
std::vector<Choice> PipeChoices(const Command& command, const Texts& words, bool first)
{
    std::vector<Choice> choices;
    const bool hasForms = first && command.forms != Forms::kNone;
    const bool hasDisplay = hasForms && command.forms != Forms::kReport;
    if (words.empty()) {
        if (hasForms) choices.push_back({"json", "RFC 7951, one document"});
        if (hasDisplay) choices.push_back({"display", "In another form."});
        std::ranges::move(FilterChoices(), std::back_inserter(choices));
    } else if (hasDisplay && words == Texts{"display"}) {
        choices = {{"json", "RFC 7951"}, {"xml", "RFC 7950"}};
        choices.push_back({"text", "As without it."});
        if (command.forms == Forms::kConfiguration) {
            choices.push_back({"set", "Commands that set the same."});
            choices.push_back({"inherited", "Text with the defaults, each marked."});
        }
    }
    return choices;
}

/// What may come behind the words.
std::vector<Choice> ChoicesFor(const CompletionContext& context, const std::vector<Word>& words,
                               const std::string& typed)
{
    const std::vector<Command> commands = Runnable(context);
    Texts left;
    Texts right;
    std::size_t pipes = 0;
    for (const Word& word : words) {
        if (word.IsPipe()) {
            ++pipes;
            right.clear();
        } else {
            (pipes > 0 ? right : left).push_back(word.text);
        }
    }
    if (!left.empty() && left.front() == "run") left.erase(left.begin());
    left = WrittenOut(commands, std::move(left));
    const Command* command = CommandOf(commands, left);
    if (pipes > 0) return command ? PipeChoices(*command, right, pipes == 1) : std::vector<Choice>{};
    std::vector<Choice> choices;
    for (const std::string& word : WordsAt(commands, left))
        choices.push_back({word, HelpFor(commands, left, word)});
    if (!command) return choices;
    const auto nameWords = std::ranges::count(command->name, ' ') + 1;
    const Texts arguments(left.begin() + nameWords, left.end());
    if (!command->arguments.empty() && command->arguments.front().kind == ArgumentKind::kCommand) {
        CompletionContext inner{commands, context.yang, context.state, context.keysOf, context.namesOf};
        std::vector<Word> rest;
        for (const std::string& each : arguments) rest.push_back({each});
        return ChoicesFor(inner, rest, typed);
    }
    for (Choice& each : ArgumentChoices(context, *command, arguments, typed))
        if (std::ranges::find(choices, each.word, &Choice::word) == choices.end())
            choices.push_back(std::move(each));
    return choices;
}

}  // namespace

std::string Completion::Insertion() const
{
    std::optional<std::string> common;
    std::size_t count = 0;
    for (const Choice& choice : choices) {
        if (choice.isValue) continue;
        ++count;
        if (!common) {
            common = choice.word;
            continue;
        }
        const auto end = std::ranges::mismatch(*common, choice.word).in1;
        common->erase(end, common->end());
    }
    if (!common || common->size() < typed) return {};
    if (count > 1) return common->substr(typed);
    const std::string quoted = Quoted(*common);
    if (quoted != *common && typed > 0) return {};  // its begin would have to change
    const bool goesOn = common->ends_with('/');     // into a directory
    return quoted.substr(typed) + (goesOn ? "" : " ");
}

std::string Completion::Text(std::size_t width, std::size_t most) const
{
    const std::span<const Choice> shown = std::span(choices).first(std::min(most, choices.size()));
    TextTable table({"", {"", 1, true}});
    std::size_t column = 0;
    for (const Choice& choice : shown) {
        column = std::max(column, Width(choice.word));
        if (!choice.isValue) table.Add({Quoted(choice.word), choice.help});
    }
    std::string values;  // what may be written there is told in full
    for (const Choice& choice : shown) {
        if (!choice.isValue) continue;
        const std::string begin = "  " + choice.word + std::string(column - Width(choice.word), ' ') + "  ";
        values +=
            choice.help.empty() ? "  " + choice.word : Wrapped(begin + choice.help, begin.size(), width);
        values += '\n';
    }
    std::string text = table.Text(2, width);
    text.erase(0, text.find('\n') + 1);  // the line of headings
    return text + values + (choices.size() > most ? "  and more\n" : "");
}

Completion Complete(const CompletionContext& context, std::string_view line)
{
    Completion completion;
    try {
        std::vector<Word> words = SplitWords(line);
        std::string typed;
        if (!words.empty() && !line.ends_with(' ') && !words.back().IsPipe()) {
            if (words.back().quoted) return {};
            typed = words.back().text;
            words.pop_back();
        }
        completion.typed = typed.size();
        completion.choices = ChoicesFor(context, words, typed);
        std::erase_if(completion.choices, [&](const Choice& choice) {
            return !choice.isValue && !choice.word.starts_with(typed);
        });
        if (completion.choices.empty() && IsOfOtherMode(context, words, typed))
            completion.hint = "it belongs to configuration mode; type configure first";
    } catch (const Error&) {
        return {};
    }
    return completion;
}

}  // namespace cli
