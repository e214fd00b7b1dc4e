// SPDX-License-Identifier: Apache-2.0
// Which session uses which candidate: the shared one, or a private one of its own; and what the state tells
// of them. To be used in the loop only; the datastores themselves, where the work on candidates is done.

#ifndef AGENT_NETCONF_CANDIDATES_H
#define AGENT_NETCONF_CANDIDATES_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/state/state_tree.h"
#include "cdb/datastore/datastore.h"

struct lysc_node;

namespace agent {

using DatastorePtr = std::shared_ptr<cdb::Datastore>;

class Candidates {
public:
    using SessionId = std::uint32_t;

    /// What requests have edited since the candidate last equalled running.
    struct Edits {
        std::uint32_t count = 0;
        std::int64_t lastUs = 0;  // microseconds since the epoch
    };
    struct Private {
        DatastorePtr datastore;
        std::string user;
        std::int64_t openedUs = 0;
        std::uint64_t base = 0;  // the commit that it began with
        Edits edits;
        bool isLocked = false;  // by its session, which alone can reach it
    };

    /// `shared` must outlive this and what Of has returned.
    explicit Candidates(cdb::Datastore& shared);

    /// The datastore whose candidate the session uses. Never null.
    [[nodiscard]] DatastorePtr Of(SessionId session) const;

    /// The session's private candidate; null if it has none.
    [[nodiscard]] Private* Find(SessionId session);

    void Open(SessionId session, Private candidate)
    {
        m_private.insert_or_assign(session, std::move(candidate));
    }
    /// Returns what there was; null if there was none.
    DatastorePtr Close(SessionId session);

    /// A request of the session has edited the candidate that it uses.
    void NoteEdit(SessionId session, const std::string& user, std::int64_t nowUs);
    /// The other sessions whose edits a commit of the session takes, too: user and number of edits.
    [[nodiscard]] std::vector<std::pair<std::string, std::uint32_t>> OthersIn(SessionId session) const;
    /// The candidate of the datastore, which Of has returned for the session, equals running, and may have
    /// another base. Does nothing if it was a private one that has been closed since.
    void NoteClean(SessionId session, const DatastorePtr& datastore);
    /// The same of the shared one.
    void NoteSharedClean() { m_editors.clear(); }

    /// Fills in /state/system/candidates.
    void AddState(const lysc_node* container, StateTree& tree) const;

private:
    struct Editor {
        SessionId session = 0;
        std::string user;
        Edits edits;
    };

    const DatastorePtr m_shared;  // owns nothing
    std::map<SessionId, Private> m_private;
    std::deque<Editor> m_editors;  // of the shared one, in the order of their latest edits
};

}  // namespace agent

#endif
