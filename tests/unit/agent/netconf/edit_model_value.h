// SPDX-License-Identifier: Apache-2.0
// The values of the model's types: which texts are some, and how they are written when they are read back.

#ifndef AGENT_EDIT_MODEL_VALUE_H
#define AGENT_EDIT_MODEL_VALUE_H

#include <string>

#include "agent/netconf/edit_model.h"

namespace agent_tests {

struct ModelValue {
    bool isGood = false;
    bool isDoubtful = false;  // good by a lenient reading
    std::string canonical;
};

ModelValue ValueOf(const ModelNode& leaf, const std::string& text);

}  // namespace agent_tests

#endif
