#include "agent/agent.h"

#include <optional>
#include <system_error>
#include <utility>

#include "agent/acceptor.h"
#include "agent/callpoints.h"
#include "agent/clients.h"
#include "agent/delivery.h"
#include "agent/operations.h"
#include "agent/sessions.h"
#include "agent/state.h"
#include "ipc/frame.h"

namespace agent {
namespace {

/// The switch's processes and its operators are in one group.
constexpr unsigned kSocketPermissions = 0660;

std::int64_t SystemNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

AgentOptions WithClock(AgentOptions options)
{
    if (!options.now) options.now = SystemNow;
    return options;
}

}  // namespace

class Agent::Impl {
public:
    Impl(boost::asio::io_context& loop, const cdb::Schema& schema, cdb::Store& store,
         cdb::Datastore& datastore, AgentOptions agentOptions)
        : m_loop(loop),
          m_options(WithClock(std::move(agentOptions))),
          m_clients(schema, store, m_options.now),
          m_callpoints(loop, schema.Table(), m_clients, m_options.callpointTimeout),
          m_delivery(loop, schema.Table(), m_clients, m_options.ackTimeout),
          m_state(loop, schema, store, m_clients, m_options.stateTimeout),
          m_operations({loop, schema, datastore, m_clients, m_callpoints, m_delivery, m_state, m_options.now,
                        [this](std::uint32_t session, const std::string& reason) {
                            return m_sessions.End(session, reason);
                        },
                        m_options.actionTimeout}),
          m_sessions(schema, m_operations, m_options.maxSessions, m_options.helloTimeout)
    {
    }

    /// What waits for a process's answer is finished while all that it works with is there.
    ~Impl() { m_clients.DisconnectAll("cdbd ends"); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Listen()
    {
        std::error_code error;
        std::filesystem::create_directories(m_options.runDirectory, error);
        if (error)
            throw std::system_error(
                error, "can't make the directory " + m_options.runDirectory.string() + " for the sockets");
        const auto path = [this](const char* name) { return (m_options.runDirectory / name).string(); };
        m_cdb.emplace(ipc::Listen(m_loop, path("cdb.sock"), kSocketPermissions),
                      [this](auto socket) { m_clients.Add(ipc::Channel::Create(std::move(socket))); });
        m_netconf.emplace(ipc::Listen(m_loop, path("netconf.sock"), kSocketPermissions),
                          [this](auto socket) { m_sessions.Add(std::move(socket)); });
    }

private:
    boost::asio::io_context& m_loop;
    AgentOptions m_options;
    Clients m_clients;
    Callpoints m_callpoints;
    Delivery m_delivery;
    StateSource m_state;
    Operations m_operations;
    Sessions m_sessions;  // behind what its requests use
    std::optional<Acceptor> m_cdb;
    std::optional<Acceptor> m_netconf;
};

Agent::Agent(boost::asio::io_context& loop, const cdb::Schema& schema, cdb::Store& store,
             cdb::Datastore& datastore, AgentOptions options)
    : m_impl(std::make_unique<Impl>(loop, schema, store, datastore, std::move(options)))
{
}

Agent::~Agent() = default;

void Agent::Listen() { m_impl->Listen(); }

}  // namespace agent
