// SPDX-License-Identifier: Apache-2.0
// Requests that a person does not wait for, on the session of the commands: a prompt and a completion do
// without an answer that takes too long. The answer that comes later is taken from the session before its
// next request.

#ifndef CLI_SHELL_TIMED_SESSION_H
#define CLI_SHELL_TIMED_SESSION_H

#include <chrono>
#include <optional>
#include <string_view>

#include "netconf/client.h"

namespace cli {

class TimedSession {
public:
    /// The answer, or nullopt if it does not come within that time, or an earlier one has not. Throws
    /// netconf::ConnectionError.
    std::optional<netconf::Reply> Call(netconf::Client& session, std::string_view operation,
                                       std::chrono::milliseconds within);

    /// Takes the answer that has not come yet, so that the next request gets its own. Throws
    /// netconf::ConnectionError.
    void Settle(netconf::Client& session);

    /// The session has ended, and nothing comes any more.
    void Forget() { m_owes = false; }

private:
    bool m_owes = false;
};

}  // namespace cli

#endif
