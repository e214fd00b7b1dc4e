#include "cdb/tree_touched.h"

namespace cdb {

void Touched::Clear()
{
    m_root = {};
    m_size = 0;
}

void Touched::Mark(const lyd_node* node, bool whole)
{
    Node* at = &m_root;
    for (auto& place : PlacesOf(m_schema, node)) {
        if (at->whole) return;
        const auto [it, isNew] = at->below.try_emplace(std::move(place));
        if (isNew) ++m_size;
        at = &it->second;
    }
    if (whole) {
        at->whole = true;  // the places below count on until Clear: a bound, not a measure
        at->below.clear();
    } else {
        at->leaves = true;
    }
    if (m_size > m_limit) {
        Clear();
        m_root.whole = true;
    }
}

}  // namespace cdb
