// SPDX-License-Identifier: Apache-2.0
// The switch that the messages are sent to: one session a message, another one that looks on, and what cdbd's
// CPU time was for it.

#ifndef SHAPES_TARGET_H
#define SHAPES_TARGET_H

#include <chrono>
#include <memory>
#include <string>

#include "support/world.h"

namespace shapes {

struct Outcome {
    enum class Kind { kAnswer, kClosed, kSilence, kEnded };
    Kind kind = Kind::kSilence;
    std::string answer;    // "ok", the tag of the first error, or "data"
    double cpuMs = 0;      // of cdbd, all its threads
    double longestMs = 0;  // that another session waited for a trivial answer meanwhile
};

class Target {
public:
    /// How long an answer may take.
    explicit Target(std::chrono::milliseconds patience);

    /// Sends the message in a session of its own and waits for its answer or its end. Whatever it has made of
    /// the candidate is taken back.
    Outcome Send(const std::string& message);

    /// Where a message left it silent or ended, it is started anew.
    void Recover();

    /// The end of cdbd's log.
    [[nodiscard]] std::string Log() const;

private:
    void Start();
    bool TakesBack();
    std::chrono::milliseconds m_patience;
    std::unique_ptr<support::World> m_world;
};

}  // namespace shapes

#endif
