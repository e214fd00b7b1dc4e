// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/prompt.h"

#include <cstddef>

#include "cli/data/words.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

constexpr std::size_t kMostPlace = 36;  // characters

std::string_view ModeName(CandidateUse candidate)
{
    switch (candidate) {
    case CandidateUse::kPrivate:
        return "private";
    case CandidateUse::kExclusive:
        return "exclusive";
    case CandidateUse::kShared:
        break;
    }
    return "config";
}

/// The words, each with a blank before it; without the first ones where they are too long.
std::string PlaceText(const std::vector<std::string>& place)
{
    std::string text;
    for (auto word = place.rbegin(); word != place.rend(); ++word) {
        const std::string longer = " " + Quoted(*word) + text;
        if (!text.empty() && Width(longer) > kMostPlace) return " ..." + text;
        text = longer;
    }
    return text;
}

}  // namespace

std::string PromptText(const std::string& who, const ShellState& state, const Standing& standing,
                       const Style& style)
{
    std::string text = who;
    if (state.configures || state.candidate != CandidateUse::kShared)
        text.append(" (").append(ModeName(state.candidate)).append(PlaceText(state.place)).append(")");
    if (standing.isEdited) text += style.Toned(Tone::kWarning, "*");
    if (standing.isAway) text += " " + style.Toned(Tone::kBroken, "[no database]");
    if (standing.isLate) text += " " + style.Toned(Tone::kBroken, "[no answer]");
    if (!standing.confirmIn.empty())
        text += " " + style.Toned(Tone::kWarning, "[confirm in " + standing.confirmIn + " s]");
    return text + "> ";
}

}  // namespace cli
