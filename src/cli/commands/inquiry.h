// SPDX-License-Identifier: Apache-2.0
// Requests whose replies are waited for beside something else, such as a keyboard. Used by commands that go
// on.

#ifndef CLI_COMMANDS_INQUIRY_H
#define CLI_COMMANDS_INQUIRY_H

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "netconf/client.h"

namespace cli {

class Inquiry {
public:
    using Connect = std::function<std::unique_ptr<netconf::Client>()>;

    /// The replies to one Ask, in the order of its operations; or why there are none.
    struct Answer {
        std::vector<netconf::Reply> replies;
        std::string failure;
    };

    /// Connects at once. Throws netconf::ConnectionError. `connect` is called in a thread of its own when the
    /// session has been lost; the destructor waits for it.
    explicit Inquiry(const Connect& connect);

    /// Sends the operations, in a new session if the last is lost. Not while it is busy.
    void Ask(std::vector<std::string> operations);
    [[nodiscard]] bool IsBusy() const { return m_isBusy; }
    /// Can be read when more of the answer has come; -1 while it connects, which Take has to look after.
    [[nodiscard]] int Descriptor() const;
    /// The answer, if it is complete. Does not wait.
    std::optional<Answer> Take();

private:
    void Advance();
    void Send();

    Connect m_connect;
    std::future<std::unique_ptr<netconf::Client>> m_connecting;
    std::unique_ptr<netconf::Client> m_session;
    std::vector<std::string> m_operations;
    std::vector<netconf::Reply> m_replies;
    bool m_isBusy = false;
    bool m_isSent = false;
};

}  // namespace cli

#endif
