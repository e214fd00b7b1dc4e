// SPDX-License-Identifier: Apache-2.0
// The state that cdbd tells about itself as a NETCONF server: /netconf-state (RFC 6022). Used by state.cpp.

#ifndef AGENT_STATE_NETCONF_STATE_H
#define AGENT_STATE_NETCONF_STATE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/data/value_check.h"
#include "agent/state/state_selection.h"
#include "agent/state/state_tree.h"

struct ly_ctx;
struct lysc_node;

namespace agent {

/// As RFC 6022 defines them. They wrap.
struct NetconfCounters {
    std::uint32_t inRpcs = 0;
    std::uint32_t inBadRpcs = 0;
    std::uint32_t outRpcErrors = 0;
    std::uint32_t outNotifications = 0;
};

/// What the sessions and operations know of themselves. Times are microseconds since the epoch.
struct NetconfFacts {
    struct Session {
        std::uint32_t id = 0;
        std::string user;
        bool overSsh = false;
        std::string sourceHost;  // empty: not known
        std::int64_t loginUs = 0;
        NetconfCounters counters;
    };
    struct Lock {
        std::string datastore;
        std::uint32_t session = 0;  // 0: none
        std::int64_t sinceUs = 0;
    };

    std::vector<std::string> capabilities;
    std::vector<Session> sessions;
    std::vector<Lock> datastores;  // each with its lock
    std::int64_t startUs = 0;
    std::uint32_t inBadHellos = 0;
    std::uint32_t inSessions = 0;
    std::uint32_t droppedSessions = 0;
    std::uint64_t turnedAway = 0;  // clients that got no session
    NetconfCounters counters;      // of all sessions since the start
};

/// Fills in what is wanted of /netconf-state.
class NetconfState {
public:
    /// `tree` must outlive this.
    NetconfState(const ly_ctx* context, const lysc_node* container, StateTree& tree);

    void Add(const StateWanted& wanted, const NetconfFacts& facts);

private:
    void AddCapabilities(const std::vector<std::string>& capabilities);
    void AddDatastores(std::vector<NetconfFacts::Lock> datastores);
    void AddSchemas();
    void AddSessions(const std::vector<NetconfFacts::Session>& sessions);
    void AddStatistics(const NetconfFacts& facts);
    void AddCounters(StateTree::Node& node, const lysc_node* schema, const NetconfCounters& counters);
    void Leaf(StateTree::Node& node, const lysc_node* parent, const char* name, std::string_view value);

    const ly_ctx* m_context;
    const lysc_node* m_container;
    StateTree& m_tree;
    ValueChecker m_checker;
};

}  // namespace agent

#endif
