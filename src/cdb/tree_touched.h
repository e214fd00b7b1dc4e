// What the candidate has touched since it was last equal to running: a trie of places. It may name
// more than has changed, never less. Bounded: beyond its limit it says "everything".

#ifndef CDB_TREE_TOUCHED_H
#define CDB_TREE_TOUCHED_H

#include <cstddef>
#include <map>

#include "cdb/tree.h"

namespace cdb {

class Touched {
public:
    /// One place: an entry or a container.
    struct Node {
        bool leaves = false;  // leaves of its own may have changed
        bool whole = false;   // it and everything below may have come, gone or changed
        std::map<Place, Node> below;
    };

    static constexpr std::size_t kDefaultLimit = 65536;
    explicit Touched(const Schema& schema, std::size_t limit = kDefaultLimit)
        : m_schema(schema), m_limit(limit)
    {
    }

    /// The node (an entry or a container) is in its tree.
    void MarkLeaves(const lyd_node* node) { Mark(node, false); }
    void MarkWhole(const lyd_node* node) { Mark(node, true); }

    void Clear();
    [[nodiscard]] bool Empty() const { return !m_root.whole && m_root.below.empty(); }

    /// Above the top-level nodes.
    [[nodiscard]] const Node& Root() const { return m_root; }

private:
    void Mark(const lyd_node* node, bool whole);

    const Schema& m_schema;
    const std::size_t m_limit;
    std::size_t m_size = 0;
    Node m_root;
};

}  // namespace cdb

#endif
