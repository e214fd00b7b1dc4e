// SPDX-License-Identifier: Apache-2.0
#include "agent/process/agent.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "agent/process/agent_metrics.h"
#include "agent/process/streams_state.h"
#include "base/user.h"
#include "ipc/frame.h"
#include "log/forward.h"
#include "log/log.h"

namespace agent {
namespace {

/// Each socket is for one group: cdb.sock for the switch's processes, netconf.sock for its operators.
constexpr unsigned kSocketPermissions = 0660;

/// Operators and processes are in different groups, so all users may pass the directory; each socket has its
/// own permissions.
constexpr auto kRunPermissions = std::filesystem::perms{0751};

std::int64_t SystemNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

AgentOptions Complete(AgentOptions options)
{
    if (!options.now) options.now = SystemNow;
    if (!options.log) options.log = std::make_shared<LogStore>();
    return options;
}

Sessions::Options SessionsOptions(const AgentOptions& options)
{
    Sessions::Options result = options.sessions;
    result.now = options.now;
    return result;
}

/// One element of a filter may select several nodes of the schema, but mostly selects one.
FilterLimits FilterLimitsOf(const guard::Limits& limits)
{
    FilterLimits result;
    result.nodes = std::max(result.nodes, limits.filterElements + limits.filterElements / 2);
    return result;
}

ProcessParty PartyOf(const Client& client) { return {client.Process(), client.Pid()}; }

/// Faults are written beside the loop, because the write waits for the disk.
Clients::Options ClientsOptions(const AgentOptions& options, cdb::Store& store,
                                std::weak_ptr<Workbench*> changes, Events& events,
                                std::function<void(Client&)> tellRole)
{
    const auto keep = [&store, changes = std::move(changes)](std::vector<cdb::Fault> faults) {
        const auto bench = changes.lock();
        if (!bench) {  // at shutdown, when nothing else writes
            if (const auto error = store.AddFaults(std::move(faults)))
                slog::Error("faults can't be kept: {}", error->message);
            return;
        }
        const auto problem = std::make_shared<std::string>();
        (*bench)->Do(
            [&store, problem, kept = std::move(faults)] {
                if (const auto error = store.AddFaults(kept)) *problem = error->message;
            },
            [problem] {
                if (!problem->empty()) slog::Error("faults can't be kept: {}", *problem);
            });
    };
    const auto tellAndKeep = [&events, doKeep = options.keepFaults ? options.keepFaults
                                                                   : keep](std::vector<cdb::Fault> faults) {
        for (const cdb::Fault& fault : faults) events.FaultReported(fault);
        doKeep(std::move(faults));
    };
    Clients::Options result{options.now, options.trust, tellAndKeep, options.clientHelloTimeout};
    result.onReady = [&events, tellRole = std::move(tellRole)](Client& client) {
        events.ProcessConnected(PartyOf(client), client.Version());
        tellRole(client);
    };
    result.onLost = [&events](const Client& client, const std::string& reason) {
        events.ProcessLost(PartyOf(client), reason);
    };
    result.onProblems = [&events](const ipc::cdb::ProblemChanges& told) {
        for (const auto& each : told.changes())
            events.ProblemChanged(
                {each.begins(), each.subject(), each.name(), each.reason(), each.severity(), each.text()});
    };
    return result;
}

}  // namespace

Agent::Agent(boost::asio::io_context& loop, const cdb::Schema& schema, cdb::Store& store,
             cdb::Datastore& datastore, Access& access, AgentOptions options)
    : m_loop(loop),
      m_store(store),
      m_access(access),
      m_options(Complete(std::move(options))),
      m_ownTimers(m_options.timers == nullptr ? base::MakeTimers(loop) : nullptr),
      m_timers(m_options.timers == nullptr ? *m_ownTimers : *m_options.timers),
      m_events(loop, schema, m_options.now, m_options.events),
      m_clients(schema, store, m_timers,
                ClientsOptions(m_options, store, m_faultBench, m_events,
                               [this](Client& client) { m_ha.Tell(client); })),
      m_callpoints(loop, m_timers, schema.Table(), m_clients,
                   {m_options.callpointTimeout, m_options.callpointTotal}),
      m_delivery(m_timers, schema, m_clients, m_options.ackTimes),
      m_state(loop, m_timers, schema, store, m_clients, access, m_options.stateTimeout),
      m_ha({m_timers, store, m_clients, m_state, m_changes, m_options.now, m_options.actionTimeout}),
      m_room(loop, m_timers, m_options.answers),
      m_logIntake(m_timers, m_options.trust, *m_options.log, m_options.now),
      m_operations({loop,
                    m_timers,
                    schema,
                    store,
                    datastore,
                    m_clients,
                    m_callpoints,
                    m_delivery,
                    m_state,
                    m_changes,
                    m_reads,
                    m_options.now,
                    [this](std::uint32_t session, const std::string& reason, std::uint32_t killer) {
                        return m_sessions.End(session, reason, killer);
                    },
                    m_options.actionTimeout,
                    access,
                    m_room,
                    FilterLimitsOf(m_options.sessions.limits),
                    m_events,
                    m_ha,
                    *m_options.log}),
      m_sessions(m_timers, schema, m_operations, m_reads, access, SessionsOptions(m_options)),
      m_changes(loop),
      m_reads(loop)
{
    m_state.SetNetconf([this] {
        NetconfFacts facts = m_sessions.Facts();
        facts.datastores = m_operations.Datastores();
        return facts;
    });
    m_state.SetUnconfirmed([this] { return m_operations.Unconfirmed(); });
    m_state.Provide("/netconf/streams", [this](const lysc_node* streams, StateTree& tree) {
        AddStreams(m_events.Log(), streams, tree);
    });
    m_state.Provide("/state/system/candidates", [this](const lysc_node* candidates, StateTree& tree) {
        m_operations.AllCandidates().AddState(candidates, tree);
    });
    for (const auto& each : {ExpectedProviders(schema.Context()), ExpectedSubscribers(schema.Context())})
        for (const ExpectedProcess& process : each) m_expected.push_back(process.process);
    m_delivery.TellStuck([this](const Client& client, std::uint64_t commit) {
        m_events.ProcessStuck(PartyOf(client), commit);
    });
}

Agent::~Agent()
{
    // Ends the requests that wait for a process while all that they use still exists.
    m_clients.DisconnectAll("cdbd ends");
    m_faultBench.reset();
}

void Agent::Listen()
{
    m_operations.TakeUpConfirmed();  // so that no client sees what is to be undone
    const auto adminGroup = base::FindGroup(m_options.adminGroup);
    const auto switchGroup = base::FindGroup(m_options.switchGroup);
    MakeRunDirectory(switchGroup);
    const auto path = [this](const char* name) { return (m_options.runDirectory / name).string(); };
    const auto listen = [&](auto& at, const char* name, auto group, auto handler) {
        at.emplace(ipc::Listen(m_loop, path(name), kSocketPermissions, group), m_timers,
                   "can't accept a connection on " + path(name), handler);
    };
    listen(m_cdb, "cdb.sock", switchGroup,
           [this](auto socket) { m_clients.Add(ipc::Channel::Create(std::move(socket), m_timers)); });
    listen(m_log, slog::kLogSocket, switchGroup, [this](auto socket) { m_logIntake.Add(std::move(socket)); });
    listen(m_netconf, "netconf.sock", adminGroup, [this](auto socket) { m_sessions.Add(std::move(socket)); });
    if (m_options.metrics)
        m_metrics.emplace(m_loop, m_timers, m_options.metrics->address, m_options.metrics->port,
                          [this] { return Metrics(); });
}

std::string Agent::Metrics() const
{
    return MetricsText({m_operations.Commits(), m_sessions.Facts(), m_access.Denied(), m_store, m_clients,
                        m_expected, m_ha.Current()});
}

/// Leaves an existing directory as it is: it may be for other users.
void Agent::MakeRunDirectory(std::optional<std::uint32_t> group) const
{
    const auto& directory = m_options.runDirectory;
    std::error_code error;
    if (std::filesystem::create_directories(directory, error)) {
        std::filesystem::permissions(directory, kRunPermissions, error);
        if (const auto problem = group ? ipc::GiveToGroup(directory, *group) : ""; !problem.empty())
            slog::Notice("{}", problem);
    }
    if (error)
        throw std::system_error(error, "can't make the directory " + directory.string() + " for the sockets");
}

}  // namespace agent
