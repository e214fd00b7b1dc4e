// What the requests of NETCONF do here (RFC 6241, section 7 and 8; our own of switch-system).

#ifndef AGENT_OPERATIONS_H
#define AGENT_OPERATIONS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>

#include "agent/access.h"
#include "agent/callpoints.h"
#include "agent/candidate_queue.h"
#include "agent/delivery.h"
#include "agent/locks.h"
#include "agent/request.h"
#include "agent/state.h"
#include "cdb/datastore.h"
#include "cdb/schema.h"

namespace agent {

class Operations {
public:
    /// What the operations work on; all of it outlives them.
    struct Services {
        boost::asio::io_context& loop;
        const cdb::Schema& schema;
        cdb::Datastore& datastore;
        const Clients& clients;
        Callpoints& callpoints;
        Delivery& delivery;
        StateSource& state;
        std::function<std::int64_t()> now;  // microseconds since the epoch
        /// Ends the session of that number; false: there is none.
        std::function<bool(std::uint32_t session, const std::string& reason)> endSession;
        std::chrono::milliseconds actionTimeout;
        Access& access;  // counts what is denied
    };
    explicit Operations(Services services);

    /// Carries the request out and answers it, now or later.
    void Handle(const RequestPtr& request);

    /// Releases the session's locks; the candidate loses its changes with its lock.
    void SessionEnded(std::uint32_t session);

private:
    using Handler = void (Operations::*)(const RequestPtr&);
    static Handler Find(const lyd_node* operation);

    // operations_read.cpp
    void Get(const RequestPtr& request);
    void GetConfig(const RequestPtr& request);
    void GetSchema(const RequestPtr& request);

    // operations_change.cpp
    void EditConfig(const RequestPtr& request);
    void Validate(const RequestPtr& request);
    void Commit(const RequestPtr& request);
    void DiscardChanges(const RequestPtr& request);
    void Edit(const RequestPtr& request, const CandidateQueue::TurnPtr& turn);

    // operations_session.cpp
    void Lock(const RequestPtr& request);
    void Unlock(const RequestPtr& request);
    void CloseSession(const RequestPtr& request);
    void KillSession(const RequestPtr& request);

    // operations_system.cpp
    void HaTransition(const RequestPtr& request);
    void SflowResync(const RequestPtr& request);

    /// Runs the work when it is the request's turn, unless its session has ended by then.
    void InTurn(const RequestPtr& request, std::function<void(const CandidateQueue::TurnPtr&)> work);

    /// Refuses the request where its user may not execute it.
    bool RefuseDenied(const RequestPtr& request);

    /// Refuses the request where another session has locked the datastore.
    bool RefuseLocked(const RequestPtr& request, Target target);

    Services m_services;
    Locks m_locks;
    CandidateQueue m_queue;
};

}  // namespace agent

#endif
