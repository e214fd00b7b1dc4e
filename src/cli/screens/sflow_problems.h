// SPDX-License-Identifier: Apache-2.0
// Why nothing flows, for people: the state's list of problems under a heading for each severity.

#ifndef CLI_SCREENS_SFLOW_PROBLEMS_H
#define CLI_SCREENS_SFLOW_PROBLEMS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/data/state_node.h"

namespace cli {

enum class Severity { kBroken, kOff, kIdle };

/// One cause, and those whom it touches.
struct Cause {
    Severity severity = Severity::kBroken;
    std::string subject;             // "agent", "collector" or "interface"
    std::vector<std::string> names;  // in natural order, at least one
    std::string text;                // the reason and the remedy; NAME in it if there are several names

    /// "collector c1", "48 interfaces".
    [[nodiscard]] std::string Label() const;
    /// The text; of several names it ends with the first of them, more where lines are wide.
    [[nodiscard]] std::string Sentence(std::size_t width) const;
};

/// Problems that differ in nothing but the name are one cause. Broken ones come first.
std::vector<Cause> CausesOf(const Children& sflow);

/// The causes of the severity under its heading, in lines of at most `width` characters; empty if there are
/// none.
std::string CausesText(const std::vector<Cause>& causes, Severity severity, std::size_t width);

std::string ProblemsText(const Children& sflow, std::size_t width);

/// Without interfaces there is no problem, and nothing flows either.
inline constexpr std::string_view kNoInterface =
    "no interface is configured; set oam sflow interface NAME flow-sampling-collector COLLECTOR";

/// The exit status where it is not known whether something is broken.
inline constexpr int kNotKnown = 2;

/// The exit status: 0 if nothing is broken, 1 if something is, kNotKnown without a state. `state`: the
/// top-level container, or null.
int ProblemsStatus(const lyd_node* state);

/// Whether a word stands before another one: 1/1/2 before 1/1/10.
bool NaturallyBefore(const std::string& one, const std::string& other);

}  // namespace cli

#endif
