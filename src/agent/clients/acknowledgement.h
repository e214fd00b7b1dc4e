// SPDX-License-Identifier: Apache-2.0
// A subscriber's acknowledgement of a commit, as the committer is told of it.

#ifndef AGENT_CLIENTS_ACKNOWLEDGEMENT_H
#define AGENT_CLIENTS_ACKNOWLEDGEMENT_H

#include <chrono>
#include <string>

namespace agent {

struct Acknowledgement {
    std::string process;
    std::chrono::microseconds took{0};  // from when it was sent the change set
};

}  // namespace agent

#endif
