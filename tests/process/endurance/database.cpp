// SPDX-License-Identifier: Apache-2.0
// The configuration database, played by a test (see the header).

#include "endurance/database.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "ipc/cdb.pb.h"
#include "support/proto_text.h"
#include "support/shown_state.h"

namespace endurance {
namespace {

/// Ages as numbers, and what is true or false as that; the rest as it is.
nlohmann::json Typed(const nlohmann::ordered_json& shown)
{
    nlohmann::json typed;
    for (const auto& [name, value] : shown.items()) {
        if (value.is_object())
            typed[name] = Typed(value);
        else if (value.is_array())
            for (const auto& each : value)
                typed[name].push_back(each.is_object() ? Typed(each) : nlohmann::json(each));
        else if (value == "true" || value == "false")
            typed[name] = value == "true";
        else if (name.ends_with("-age"))
            typed[name] = std::stoll(value.get<std::string>());
        else
            typed[name] = value.get<std::string>();
    }
    return typed;
}

}  // namespace

Database::Database(const std::filesystem::path& socket)
    : m_listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_un address = support::UnixAddress(socket);
    pollfd waiting{.fd = m_listening, .events = POLLIN, .revents = 0};
    int connection = -1;
    if (::bind(m_listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(m_listening, 1) == 0 &&
        ::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(support::kPatience).count())) == 1)
        connection = ::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
        const int error = errno;
        ::close(m_listening);
        throw std::system_error(error, std::generic_category(), "the manager at " + socket.string());
    }
    m_manager = std::make_unique<support::FrameClient>(connection);
    ipc::cdb::ClientMessage message;
    while (!message.has_ready())
        if (!m_manager->Receive(message)) throw std::runtime_error("the manager has ended the connection");
    ipc::cdb::ServerMessage welcome;
    welcome.mutable_welcome()->set_store_dir("/nowhere");
    m_manager->Send(welcome);
    if (!m_manager->Receive(message) || !message.has_loaded())
        throw std::runtime_error("the manager does not say that it has loaded");
}

Database::~Database() { ::close(m_listening); }

nlohmann::json Database::State()
{
    ipc::cdb::ServerMessage request;
    request.mutable_state_request()->set_request(++m_requests);
    request.mutable_state_request()->add_parts()->set_path("/state/oam/sflow");
    m_manager->Send(request);
    nlohmann::ordered_json state;
    for (bool more = true; more;) {
        ipc::cdb::ClientMessage answer;
        if (!m_manager->Receive(answer) || !answer.has_state_reply() || answer.state_reply().trees().empty())
            throw std::runtime_error("no state but: " + support::TextOf(answer));
        const ipc::cdb::StateReply& part = answer.state_reply();
        for (const auto& tree : part.trees()) support::Show(part, tree.node(), state);
        more = part.more();
    }
    return Typed(state);
}

nlohmann::json Database::Entry(const std::string& list, const std::string& name)
{
    const nlohmann::json state = State();
    for (const auto& entry : state.at(list))
        if (entry.at("keys").at(0) == name) return entry;
    throw std::out_of_range("no " + list + " " + name);
}

}  // namespace endurance
