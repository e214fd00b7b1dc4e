// SPDX-License-Identifier: Apache-2.0
// The manager's connection to the configuration database: answers its questions about the state of sFlow,
// takes the operator's requests, and hears of changes of the manager's own settings. Connects again without
// end; the manager does not depend on it.

#ifndef MANAGER_STATUS_STATE_PROVIDER_H
#define MANAGER_STATUS_STATE_PROVIDER_H

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ipc/link.h"
#include "manager/status/problem_watch.h"
#include "manager/status/state_answer.h"

namespace ipc::cdb {
class ActionRequest;
class ChangeSet;
class ClientMessage;
class StateRequest;
class ServerMessage;
}  // namespace ipc::cdb

namespace manager {

/// A node of an operation's output: a leaf, or a list's entry with what is in it.
struct OutputNode {
    std::string name;
    std::string value = {};
    std::vector<OutputNode> children = {};
};

/// What an action came to: an error, or its output.
struct ActionResult {
    std::string error;
    std::vector<OutputNode> output;
};
using ActionDone = std::function<void(const ActionResult&)>;

class StateProvider {
public:
    /// Questions that wait for their answers; more are refused.
    static constexpr std::size_t kMaxQuestions = 64;
    /// No part of an answer is made while more bytes than this wait to be sent.
    static constexpr std::size_t kMaxUnsent = std::size_t{1} << 20;

    struct Handlers {
        /// The database has accepted the manager; its store is in the directory. Earlier answers are gone.
        std::function<void(const std::string& storeDirectory)> accepted;
        /// Begins an answer; its parts are made later, as their turns come.
        std::function<std::unique_ptr<StateParts>(const ipc::cdb::StateRequest& request)> state;
        /// Asks for everything anew. Returns an empty text when that is under way, else why it can't be.
        std::function<std::string()> resync;
        /// A commit has changed some of the own settings. It has been acknowledged already: what follows may
        /// take its time.
        std::function<void(const ipc::cdb::ChangeSet& changes)> changed;
        /// The connection has ended. May be null.
        std::function<void()> lost = {};
        /// Tries the way to the collector; `done` is called once, from the loop.
        std::function<void(const std::string& collector, ActionDone done)> testCollector = {};
        /// The flows that carry most at the interface.
        std::function<ActionResult(const std::string& interface)> topTalkers = {};
        /// Counts that operators compare begin at zero.
        std::function<void()> clearStatistics = {};
    };

    /// Connects from the loop once Start has been called. `loop` and `timers` must outlive it.
    StateProvider(boost::asio::io_context& loop, base::Timers& timers, std::string socketPath,
                  Handlers handlers);
    ~StateProvider();

    void Start() { m_link.Start(); }
    /// Drops the answers under way and disconnects.
    void Stop();

    /// Tells the database what has begun and ended to be wrong. No effect without a connection.
    void Tell(const std::vector<ProblemChange>& changes);

private:
    struct Open {
        std::uint64_t request;
        std::unique_ptr<StateParts> parts;
    };

    void Introduce();
    void OnFrame(std::string_view frame);
    void OnMessage(ipc::cdb::ServerMessage& message);
    void SayLoaded();
    void OnRefused(const std::string& reason);
    void AnswerState(const ipc::cdb::StateRequest& request);
    void AnswerAction(const ipc::cdb::ActionRequest& request);
    void SendActionReply(std::uint64_t request, const ActionResult& result);
    void TakeChanges(ipc::cdb::ChangeSet& changes);
    /// One part of one answer; the next part, of the next answer, in another turn of the loop.
    void GoOn();
    void GoOnLater(std::chrono::milliseconds delay);
    void DropAnswers();

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const Handlers m_handlers;
    bool m_refusalLogged = false;
    std::deque<Open> m_answers;
    std::unique_ptr<ipc::cdb::ClientMessage> m_part;  // of an answer: the last one that was made
    std::shared_ptr<void> m_turn;                     // while one is to come
    std::shared_ptr<void> m_connection;               // replaced where answers are dropped
    const std::shared_ptr<void> m_alive = std::make_shared<int>();
    ipc::Link m_link;  // last: its handlers use the others
};

}  // namespace manager

#endif
