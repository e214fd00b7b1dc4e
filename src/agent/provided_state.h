// What a state provider has answered, taken over as far as it is the provider's own part. Used by
// state.cpp.

#ifndef AGENT_PROVIDED_STATE_H
#define AGENT_PROVIDED_STATE_H

#include <string>

#include "agent/ask.h"
#include "agent/yang_tree.h"

struct ly_ctx;

namespace agent {

/// Adds the answer's data below the provider's paths to the tree. What is wrong with the answer, or
/// an empty text.
std::string AddProvidedState(const ly_ctx* context, const Answer& answer, Tree& state);

}  // namespace agent

#endif
