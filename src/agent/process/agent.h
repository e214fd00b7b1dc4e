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

#include <boost/asio/io_context.hpp>

#include "agent/access/access.h"
#include "agent/clients/fault_intake.h"
#include "agent/netconf/answer_room.h"
#include "agent/netconf/sessions.h"
#include "base/timers.h"
#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "ipc/trust.h"

namespace agent {

struct AgentOptions {
    std::filesystem::path runDirectory;                 // for the sockets
    std::chrono::milliseconds ackTimeout{10'000};       // of a subscriber, for one change set
    std::chrono::milliseconds callpointTimeout{5'000};  // without any answer
    std::chrono::milliseconds callpointTotal{30'000};   // for all questions of one edit
    std::chrono::milliseconds stateTimeout{2'000};      // of a provider, for the next part of its state
    std::chrono::milliseconds actionTimeout{5'000};     // of a process, for a transition or an action
    Sessions::Options sessions{};
    AnswerRoom::Options answers{};
    ipc::Trust trust{"cdbd"};  // of the processes on cdb.sock
    std::chrono::milliseconds clientHelloTimeout{5'000};
    /// The groups of the sockets; the process's own group if there is none of that name.
    std::string adminGroup = ipc::kAdminGroup;
    std::string switchGroup = ipc::kSwitchGroup;
    /// Keeps faults. Null: they are written to the store, beside the loop.
    FaultIntake::Keep keepFaults;
    std::function<std::int64_t()> now;  // microseconds since the epoch; null: the system's clock
    base::Timers* timers = nullptr;     // must outlive the agent; null: the steady clock
};

class Agent {
public:
    /// All arguments but the options must outlive this.
    Agent(boost::asio::io_context& loop, const cdb::Schema& schema, cdb::Store& store,
          cdb::Datastore& datastore, Access& access, AgentOptions options);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    /// Makes the run directory if it is missing and opens the sockets. Throws std::system_error
    /// that names the path.
    void Listen();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace agent

#endif
