// SPDX-License-Identifier: Apache-2.0
// A plain, blocking NETCONF client on a Unix socket: one request, one reply. Used by swcli, tests
// and measurements; knows no YANG.

#ifndef NETCONF_CLIENT_H
#define NETCONF_CLIENT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/expected.h"
#include "netconf/framing.h"
#include "netconf/hello.h"
#include "netconf/rpc_error.h"
#include "netconf/socket.h"

namespace netconf {

/// An <rpc-reply>.
struct Reply {
    /// The request was carried out: no rpc-error of severity "error" (warnings may be in `errors`).
    bool ok = false;
    /// In the order of the reply; errors and warnings.
    std::vector<RpcError> errors;
    /// What stands inside <data>, as it was sent: XML elements that declare their own namespaces.
    std::string data;
    /// What stands inside each element of another namespace beside those: the output of an operation.
    std::map<std::string, std::string, std::less<>> output;
    /// The number of the commit that was made (yang/switch-history.yang); nullopt if none was.
    std::optional<std::uint64_t> commit;
    /// How many changes the operation has made, taken back or put into the candidate, where it tells.
    std::optional<std::size_t> changes;
    /// The processes that have acknowledged the commit, and after how long.
    std::vector<std::pair<std::string, std::chrono::microseconds>> acknowledged;
    /// The users whose edits in other sessions were committed, too, and how many edits.
    std::vector<std::pair<std::string, std::uint32_t>> alsoEditedBy;
    /// The whole <rpc-reply>.
    std::string xml;
};

/// The reply, or what is wrong with the message.
base::expected<Reply, std::string> ParseReply(std::string xml);

/// A wait for a reply has ended because of what StopAt names. The request is on its way, and its reply is
/// left behind: the next call passes it over.
class Stopped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ClientOptions {
    std::chrono::milliseconds connectTimeout{5'000};  // socket and hello exchange together
    std::chrono::milliseconds callTimeout{120'000};   // a commit waits for its subscribers
    bool offerChunked = true;                         // base:1.1 in our hello
};

class Client {
public:
    /// Connects and says hello. Throws ConnectionError. After a ConnectionError of any function the client
    /// must not be used.
    static Client Connect(const std::string& socketPath, const ClientOptions& options = {});

    /// Says hello on a connected stream socket. Throws ConnectionError.
    /// `name` is for messages.
    Client(base::UniqueFd socket, std::string name, const ClientOptions& options = {});

    [[nodiscard]] std::uint32_t SessionId() const { return m_server.sessionId; }
    [[nodiscard]] const Hello& ServerHello() const { return m_server; }
    /// Can be read when a message, or a part of one, has come.
    [[nodiscard]] int Descriptor() const { return m_socket.Get(); }
    [[nodiscard]] Framing UsedFraming() const { return m_framing; }

    /// From now on a wait for a reply ends with Stopped once the descriptor can be read; -1: with the reply
    /// only. A request that is half sent then ends with ConnectionError.
    void StopAt(int descriptor) { m_stop = descriptor; }

    /// Sends <rpc> around `operation` (an element; the base namespace is the default there, see
    /// requests.h) and waits for its reply. Replies that earlier requests have left behind are passed over.
    /// Throws ConnectionError and Stopped.
    Reply Call(std::string_view operation);
    /// The same; nullopt if the reply does not come within that time, or one that was left behind has not:
    /// then nothing is sent.
    std::optional<Reply> CallWithin(std::string_view operation, std::chrono::milliseconds time);

    /// The two halves of Call: to have several requests under way. Replies come in request order.
    void Send(std::string_view operation);
    Reply Receive();

    /// Bytes as they are, without any frame: for tests of the other side's robustness.
    void SendRaw(std::string_view bytes);
    /// The next message, not parsed.
    std::string ReceiveMessage();
    /// The same, however long it takes; nullopt once the descriptor `stop` can be read.
    std::optional<std::string> ReceiveMessageUnless(int stop);
    /// The same; nullopt if it does not come within that time. It can be received later then.
    std::optional<std::string> ReceiveMessageWithin(std::chrono::milliseconds time);

private:
    using Deadline = std::chrono::steady_clock::time_point;
    void SayHello(const ClientOptions& options);
    void Write(std::string_view bytes, Deadline deadline);
    std::string Read(Deadline deadline);
    std::optional<std::string> ReadAvailable();
    void AwaitReady(short events, Deadline deadline) const;
    [[nodiscard]] Reply Parsed(std::string message) const;
    [[noreturn]] void Fail(const std::string& what) const;

    base::UniqueFd m_socket;
    std::string m_name;
    std::chrono::milliseconds m_callTimeout;
    MessageReader m_reader;
    Framing m_framing = Framing::kEndOfMessage;
    Hello m_server;
    std::uint64_t m_lastId = 0;
    std::size_t m_owed = 0;  // replies that have not come yet
    int m_stop = -1;
};

}  // namespace netconf

#endif
