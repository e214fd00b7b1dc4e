// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_problems.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <map>
#include <string_view>
#include <tuple>

#include "cli/screens/fact_list.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

constexpr std::string_view kAnyName = "NAME";
/// Of the names of a cause one is shown for so many characters of a line.
constexpr std::size_t kWidthOfName = 20;

Severity SeverityOf(const Children& problem)
{
    const std::string severity = problem.Value("severity");
    return severity == "off" ? Severity::kOff : severity == "idle" ? Severity::kIdle : Severity::kBroken;
}

bool IsPartOfName(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

/// The text with NAME in the place of the name wherever that stands as a word.
std::string WithoutName(std::string text, const std::string& name)
{
    for (std::size_t at = text.find(name); !name.empty() && at != std::string::npos;) {
        const std::size_t end = at + name.size();
        const bool isWord =
            (at == 0 || !IsPartOfName(text[at - 1])) && (end == text.size() || !IsPartOfName(text[end]));
        if (isWord) text.replace(at, name.size(), kAnyName);
        at = text.find(name, isWord ? at + kAnyName.size() : end);
    }
    return text;
}

std::string Heading(Severity severity)
{
    static constexpr std::array kHeadings = {"Broken", "Off by configuration", "Idle"};
    return kHeadings.at(static_cast<std::size_t>(severity));
}

}  // namespace

bool NaturallyBefore(const std::string& one, const std::string& other)
{
    return ::strverscmp(one.c_str(), other.c_str()) < 0;
}

std::string Cause::Label() const
{
    if (names.size() > 1) return std::to_string(names.size()) + " " + subject + "s";
    return subject == names.front() ? subject : subject + " " + names.front();
}

std::string Cause::Sentence(std::size_t width) const
{
    if (names.size() == 1) return text;
    std::string sentence = text + "; " + std::string(kAnyName) + ": ";
    const std::size_t shown = std::min(names.size(), std::max(std::size_t{1}, (width + 1) / kWidthOfName));
    for (std::size_t i = 0; i < shown; ++i) sentence += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > shown) sentence += " and " + std::to_string(names.size() - shown) + " more";
    return sentence;
}

std::vector<Cause> CausesOf(const Children& sflow)
{
    using Key = std::tuple<Severity, std::string, std::string, std::string>;
    std::map<Key, std::size_t> known;
    std::vector<Cause> causes;
    std::vector<std::string> ownTexts;  // of the first name of each cause
    sflow.ForEach("problem", [&](const lyd_node* node) {
        const Children problem(node);
        const std::string name = problem.Value("name");
        const std::string text = problem.Value("text");
        Cause cause{SeverityOf(problem), problem.Value("subject"), {name}, WithoutName(text, name)};
        const auto [found, isNew] = known.try_emplace(
            {cause.severity, cause.subject, problem.Value("reason"), cause.text}, causes.size());
        if (!isNew) return causes[found->second].names.push_back(name);
        causes.push_back(std::move(cause));
        ownTexts.push_back(text);
    });
    for (std::size_t i = 0; i < causes.size(); ++i) {
        if (causes[i].names.size() == 1) causes[i].text = ownTexts[i];
        std::ranges::sort(causes[i].names, NaturallyBefore);
    }
    std::ranges::stable_sort(causes, [](const Cause& one, const Cause& other) {
        if (one.severity != other.severity) return one.severity < other.severity;
        if (one.subject != other.subject) return one.subject < other.subject;
        return NaturallyBefore(one.names.front(), other.names.front());
    });
    return causes;
}

int ProblemsStatus(const lyd_node* state)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    if (sflow.None()) return kNotKnown;
    bool broken = false;
    sflow.ForEach("problem", [&](const lyd_node* node) {
        broken = broken || SeverityOf(Children(node)) == Severity::kBroken;
    });
    return broken ? 1 : 0;
}

std::string CausesText(const std::vector<Cause>& causes, Severity severity, std::size_t width)
{
    FactList facts;
    for (const Cause& cause : causes)
        if (cause.severity == severity) facts.Add(cause.Label(), cause.Sentence(width));
    return facts.Empty() ? "" : Heading(severity) + "\n" + facts.Text(kIndent, width);
}

std::string ProblemsText(const Children& sflow, std::size_t width)
{
    const std::vector<Cause> causes = CausesOf(sflow);
    std::string text;
    for (const Severity severity : {Severity::kBroken, Severity::kOff, Severity::kIdle}) {
        const std::string section = CausesText(causes, severity, width);
        if (!section.empty()) text += (text.empty() ? "" : "\n") + section;
    }
    return text.empty() ? "Everything flows.\n" : text;
}

}  // namespace cli
