// SPDX-License-Identifier: Apache-2.0
// Random edits, most of them nearly right, and the many ways in which one edit can be written: with
// comments, sections, references and instructions anywhere, by any prefixes. What they mean: edit_model.h.

#ifndef AGENT_RANDOM_EDIT_H
#define AGENT_RANDOM_EDIT_H

#include <string>
#include <vector>

#include "agent/netconf/edit_model.h"
#include "agent/random_data.h"

namespace agent_tests {

/// What stands in <config>: most often the container config, once.
std::vector<EditNode> MakeRandomEdit(Random& random);
EditParameters MakeRandomParameters(Random& random);

/// As XML, in one of the ways to write it.
std::string Written(Random& random, const std::vector<EditNode>& edit);

}  // namespace agent_tests

#endif
