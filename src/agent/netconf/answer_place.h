// SPDX-License-Identifier: Apache-2.0
// The memory that one answer takes of the room for answers (answer_room.h), from the beginning of the work on
// it until the client has read it or its session has ended.

#ifndef AGENT_NETCONF_ANSWER_PLACE_H
#define AGENT_NETCONF_ANSWER_PLACE_H

#include <cstddef>

namespace agent {

class AnswerPlace {
public:
    AnswerPlace() = default;
    AnswerPlace(const AnswerPlace&) = delete;
    AnswerPlace& operator=(const AnswerPlace&) = delete;
    /// Gives the room back.
    virtual ~AnswerPlace() = default;

    /// The answer is made; its size replaces the estimate.
    virtual void SetSize(std::size_t bytes) = 0;
};

}  // namespace agent

#endif
