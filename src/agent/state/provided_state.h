// SPDX-License-Identifier: Apache-2.0
// The state that providers tell: asks several at once, and takes over each answer part by part. A node that
// the schema does not have makes the whole answer invalid. Used by state.cpp.

#ifndef AGENT_STATE_PROVIDED_STATE_H
#define AGENT_STATE_PROVIDED_STATE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients/client.h"
#include "agent/data/value_check.h"
#include "agent/state/state_tree.h"
#include "base/timers.h"

struct ly_ctx;

namespace agent {

/// A provider's answer, as far as it has come: looks up each node in the schema.
class ProvidedState {
public:
    /// What one answer may take in memory, and how many of its warnings are kept: far more than a switch
    /// needs.
    static constexpr std::size_t kMaxBytes = std::size_t{128} << 20;
    static constexpr std::size_t kMaxWarnings = 16;
    /// The names of one part, and the bytes of one value.
    static constexpr int kMaxNames = 4096;
    static constexpr std::size_t kMaxValue = std::size_t{64} << 10;

    ProvidedState(const ly_ctx* context, const std::vector<StateProvision>& provided);

    /// Takes the next part. Returns what is wrong with it; empty if nothing. Not to be called after an error.
    [[nodiscard]] std::string Take(const ipc::cdb::StateReply& part);

    /// The state that has been taken; its texts live as long as the tree.
    [[nodiscard]] StateTree& Tree() { return m_tree; }
    [[nodiscard]] const std::vector<std::string>& Warnings() const { return m_warnings; }
    /// What the state takes in memory, about; as XML it is a little more.
    [[nodiscard]] std::size_t Bytes() const { return m_bytes; }

private:
    struct Trail;
    class Names;

    std::string TakeTree(const ipc::cdb::StateReply_Tree& tree, Names& names);
    std::string TakeNode(const ipc::cdb::StateNode& from, StateTree::Node& into, const Trail& trail,
                         Names& names);
    std::string TakeLeaf(const lysc_node* leaf, std::string_view value, StateTree::Node& into,
                         const Trail& trail);
    std::string TakeEntry(const ipc::cdb::StateNode& from, const lysc_node* list, StateTree::Node& into,
                          const Trail& trail, Names& names);
    std::string TakeKeys(const ipc::cdb::StateNode& from, const lysc_node* list, const Trail& trail,
                         std::vector<std::string_view>& keys);
    void TakeWarnings(const ipc::cdb::StateReply& part);

    std::vector<std::pair<std::string, const lysc_node*>> m_containers;  // by path
    ValueChecker m_checker;
    StateTree m_tree;
    std::vector<std::string> m_warnings;
    std::size_t m_bytes = 0;
};

struct StateQuestion {
    ClientPtr client;
    ipc::cdb::StateRequest request;  // without its number
};

/// The result of a question.
struct StateOutcome {
    ClientPtr client;
    std::vector<std::string> paths;  // that the client was asked for
    Client::AnswerKey key;           // of its answer
    bool late = false;               // the answer may still come
    std::string problem;             // why there is no state; empty if there is
    std::unique_ptr<ProvidedState> state;
};

/// Asks several providers, takes their answers part by part, each in a turn of the loop, and gives up
/// providers that stop answering.
class StateQuery : public std::enable_shared_from_this<StateQuery> {
public:
    using Done = std::function<void(std::vector<StateOutcome>&& outcomes)>;

    /// A whole answer may take this many times the timeout of one part.
    static constexpr int kWhole = 5;

    StateQuery(boost::asio::io_context& loop, base::Timers& timers, const ly_ctx* context,
               std::chrono::milliseconds timeout, Done done);

    /// Asks. Calls `done` once, from the loop, never from inside Run. At least one question.
    void Run(std::vector<StateQuestion> questions);

private:
    struct Open {
        StateOutcome outcome;
        std::shared_ptr<void> timer{};                  // for the next part
        std::chrono::steady_clock::time_point until{};  // for the whole answer
        bool ended = false;
    };

    void Ask(std::size_t index, ipc::cdb::StateRequest&& request);
    void Await(std::size_t index);
    void Take(std::size_t index, const ipc::cdb::ClientMessage* message);
    void End(std::size_t index, std::string problem);

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const ly_ctx* m_context;
    std::chrono::milliseconds m_timeout;
    Done m_done;
    std::vector<std::unique_ptr<Open>> m_open;
    std::size_t m_running = 0;
};

/// "2 s", "50 ms"
std::string DurationText(std::chrono::milliseconds duration);

}  // namespace agent

#endif
