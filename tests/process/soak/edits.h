// SPDX-License-Identifier: Apache-2.0
// Random edits, with their result according to the soak's own model.

#ifndef SOAK_EDITS_H
#define SOAK_EDITS_H

#include <optional>
#include <string>

#include "soak/configuration.h"
#include "support/dice.h"

namespace soak {

using support::Dice;

struct Edit {
    std::string what;                    // for the report
    std::string config;                  // XML inside <config>
    std::optional<Configuration> after;  // nullopt: it must be refused
    /// Of these one may be in a commit: of two changes of `enabled` the daemon carries out the later one.
    bool changesEnabled = false;
};

/// An edit of this candidate that makes sense, and may be one that has to be refused because of what is
/// there.
Edit DrawEdit(Dice& dice, const Configuration& candidate);

/// One that has to be refused whatever is there.
Edit DrawNonsense(Dice& dice);

/// One that changes the agent's address to what it was not.
Edit ChangeAgent(Dice& dice, const Configuration& candidate);

}  // namespace soak

#endif
