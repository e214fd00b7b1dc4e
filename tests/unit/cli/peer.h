// SPDX-License-Identifier: Apache-2.0
// The database's side of a NETCONF session, played by a test: answers by script, records requests.

#ifndef TESTS_UNIT_CLI_PEER_H
#define TESTS_UNIT_CLI_PEER_H

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cli/shell/shell.h"
#include "netconf/client.h"

namespace cli_test {

/// The content of the <rpc-reply> for an operation; nullopt ends the session without an answer.
using Answer = std::function<std::optional<std::string>(const std::string& operation)>;

class Peer {
public:
    explicit Peer(Answer answer) : m_answer(std::move(answer)) {}
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// A session with this peer; served by a thread until the client goes.
    std::unique_ptr<netconf::Client> Connect();

    /// The operations received by now, in order.
    [[nodiscard]] std::vector<std::string> Requests() const;

private:
    void Serve(int descriptor);
    std::optional<std::string> AnswerTo(const std::string& operation);

    mutable std::mutex m_mutex;  // of the two below: each session has a thread
    Answer m_answer;
    std::vector<std::string> m_requests;
    std::vector<std::thread> m_threads;
};

/// A conversation whose lines are those of `input`.
inline void Converse(cli::Shell& shell, std::istream& input, std::ostream& out)
{
    cli::StreamLines lines(input, out);
    shell.Converse(lines);
}

/// Answers that tests use often.
std::optional<std::string> Ok(const std::string& operation);
std::string Data(const std::string& xml);
std::string RpcError(const std::string& severity, const std::string& message, const std::string& path = {});

}  // namespace cli_test

#endif
