// SPDX-License-Identifier: Apache-2.0
// The management agent of cdbd: NETCONF for operators and controllers on one socket, the processes of
// the switch on another, in one loop. Assembles the parts and accepts the connections.

#ifndef AGENT_PROCESS_AGENT_H
#define AGENT_PROCESS_AGENT_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/access/access.h"
#include "agent/clients/callpoints.h"
#include "agent/clients/clients.h"
#include "agent/clients/delivery.h"
#include "agent/clients/misses.h"
#include "agent/events/events.h"
#include "agent/log/log_intake.h"
#include "agent/log/log_store.h"
#include "agent/netconf/answer_room.h"
#include "agent/netconf/ha_role.h"
#include "agent/netconf/operations.h"
#include "agent/netconf/sessions.h"
#include "agent/netconf/workbench.h"
#include "agent/state/state.h"
#include "base/timers.h"
#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "ipc/acceptor.h"
#include "ipc/trust.h"
#include "metrics/address.h"
#include "metrics/server.h"

namespace agent {

struct AgentOptions {
    std::filesystem::path runDirectory;                 // for the sockets
    AckTimes ackTimes;                                  // of a subscriber, for one change set
    std::chrono::milliseconds callpointTimeout{5'000};  // without any answer
    std::chrono::milliseconds callpointTotal{30'000};   // for all questions of one edit
    std::chrono::milliseconds stateTimeout{2'000};      // of a provider, for the next part of its state
    std::chrono::milliseconds actionTimeout{5'000};     // of a process, for a transition or an action
    Sessions::Options sessions{};
    AnswerRoom::Options answers{};
    EventLog::Limits events{};
    ipc::Trust trust{"cdbd"};  // of the processes on cdb.sock
    std::chrono::milliseconds clientHelloTimeout{5'000};
    std::optional<metrics::Address> metrics;  // where they are served
    /// The groups of the sockets; the process's own group if there is none of that name.
    std::string adminGroup = ipc::kAdminGroup;
    std::string switchGroup = ipc::kSwitchGroup;
    /// Keeps faults. Null: they are written to the store, beside the loop.
    FaultIntake::Keep keepFaults;
    std::function<std::int64_t()> now;  // microseconds since the epoch; null: the system's clock
    /// Where the lines of the log are kept. Null: in one that the agent makes.
    std::shared_ptr<LogStore> log;
    base::Timers* timers = nullptr;  // must outlive the agent; null: the steady clock
};

class Agent {
public:
    /// All arguments but the options must outlive this.
    Agent(boost::asio::io_context& loop, const cdb::Schema& schema, cdb::Store& store,
          cdb::Datastore& datastore, Access& access, AgentOptions options);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    /// Rolls back a confirmed commit that an earlier run has left and that is due. Then makes the run
    /// directory if it is missing and opens the sockets. Throws std::system_error that names the path.
    void Listen();

    /// What monitoring is told.
    [[nodiscard]] std::string Metrics() const;

private:
    void MakeRunDirectory(std::optional<std::uint32_t> group) const;

    boost::asio::io_context& m_loop;
    const cdb::Store& m_store;
    const Access& m_access;
    AgentOptions m_options;
    const std::unique_ptr<base::Timers> m_ownTimers;  // null if the options have some
    base::Timers& m_timers;
    /// Reset before m_changes ends.
    std::shared_ptr<Workbench*> m_faultBench = std::make_shared<Workbench*>(&m_changes);
    Events m_events;
    Clients m_clients;
    Callpoints m_callpoints;
    Delivery m_delivery;
    StateSource m_state;
    HaRole m_ha;
    AnswerRoom m_room;
    LogIntake m_logIntake;
    Operations m_operations;
    Sessions m_sessions;  // declared after what its requests use
    using Acceptor = ipc::Acceptor<boost::asio::local::stream_protocol>;
    std::optional<Acceptor> m_cdb;
    std::optional<Acceptor> m_netconf;
    std::optional<Acceptor> m_log;
    std::vector<std::string> m_expected;  // names of processes that should be connected
    std::optional<metrics::Server> m_metrics;
    // Destroyed first: their work uses all of the above.
    Workbench m_changes;
    Workbench m_reads;
};

}  // namespace agent

#endif
