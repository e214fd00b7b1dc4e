// SPDX-License-Identifier: Apache-2.0
#include "cli/peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "netconf/framing.h"
#include "netconf/hello.h"
#include "netconf/names.h"
#include "netconf/xml.h"

namespace cli_test {
namespace {

void SendAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;  // the client has gone; reading will tell
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::string Between(const std::string& text, const std::string& open, const std::string& close)
{
    const std::size_t begin = text.find(open) + open.size();
    return text.substr(begin, text.find(close, begin) - begin);
}

}  // namespace

Peer::~Peer()
{
    for (std::thread& thread : m_threads) thread.join();
}

std::unique_ptr<netconf::Client> Peer::Connect()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error(std::strerror(errno));
    m_threads.emplace_back([this, end = ends[1]] { Serve(end); });
    return std::make_unique<netconf::Client>(base::UniqueFd(ends[0]), "peer");
}

std::vector<std::string> Peer::Requests() const
{
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

std::optional<std::string> Peer::AnswerTo(const std::string& operation)
{
    const std::lock_guard lock(m_mutex);
    m_requests.push_back(operation);
    return m_answer(operation);
}

void Peer::Serve(int descriptor)
{
    const netconf::Hello hello{{std::string(netconf::kBase10)}, 1};
    const std::string trailer(netconf::FrameTrailer(netconf::Framing::kEndOfMessage));
    SendAll(descriptor, netconf::ToXml(hello) + trailer);
    netconf::MessageReader reader;
    char block[65536];
    bool helloSeen = false;
    for (ssize_t count = 0; (count = ::recv(descriptor, block, sizeof block, 0)) > 0;) {
        reader.Append({block, static_cast<std::size_t>(count)});
        while (const auto message = reader.Next()) {
            if (!std::exchange(helloSeen, true)) continue;
            const std::size_t begin = message->find('>') + 1;
            const std::string operation = message->substr(begin, message->rfind("</rpc>") - begin);
            const auto reply = AnswerTo(operation);
            if (!reply)
                ::shutdown(descriptor, SHUT_RDWR);
            else
                SendAll(descriptor, "<rpc-reply xmlns=\"" + std::string(netconf::kBaseNamespace) +
                                        "\" message-id=\"" + Between(*message, "message-id=\"", "\"") +
                                        "\">" + *reply + "</rpc-reply>" + trailer);
        }
    }
    ::close(descriptor);
}

std::optional<std::string> Ok(const std::string&) { return "<ok/>"; }

std::string Data(const std::string& xml) { return "<data>" + xml + "</data>"; }

std::string RpcError(const std::string& severity, const std::string& message, const std::string& path)
{
    return "<rpc-error><error-type>application</error-type><error-tag>invalid-value</"
           "error-tag><error-severity>" +
           severity + "</error-severity>" +
           (path.empty() ? "" : "<error-path>" + netconf::Escaped(path) + "</error-path>") +
           "<error-message>" + netconf::Escaped(message) + "</error-message></rpc-error>";
}

}  // namespace cli_test
