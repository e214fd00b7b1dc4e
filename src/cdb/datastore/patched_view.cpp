// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/patched_view.h"

#include <algorithm>

namespace cdb {

const Row* PatchedView::Get(NodeId node, std::span<const std::string> keys)
{
    const auto it = m_changes.find({node, {keys.begin(), keys.end()}});
    if (it == m_changes.end()) return m_below.Get(node, keys);
    return it->second ? &*it->second : nullptr;
}

void PatchedView::ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit)
{
    const std::vector<std::string> parent(parentKeys.begin(), parentKeys.end());
    const auto isBelow = [&](const auto& key) {
        return key.first == list && key.second.size() > parent.size() &&
               std::equal(parent.begin(), parent.end(), key.second.begin());
    };
    auto next = m_changes.lower_bound({list, parent});
    while (next != m_changes.end() && next->first.first == list && next->first.second == parent) ++next;
    bool goesOn = true;
    const auto own = [&](const std::vector<std::string>& keys) {
        return std::vector<std::string>(keys.begin() + static_cast<std::ptrdiff_t>(parent.size()),
                                        keys.end());
    };
    const auto showPatched = [&](const std::vector<std::string>* before) {
        for (; goesOn && next != m_changes.end() && isBelow(next->first); ++next) {
            const auto keys = own(next->first.second);
            if (before != nullptr && !(keys < *before)) return;
            const std::vector<std::string_view> shown(keys.begin(), keys.end());
            if (next->second) goesOn = visit(shown, *next->second);
        }
    };
    m_below.ForEach(list, parentKeys, [&](std::span<const std::string_view> keys, const Row& row) {
        const std::vector<std::string> text(keys.begin(), keys.end());
        showPatched(&text);
        std::vector<std::string> all = parent;
        all.insert(all.end(), text.begin(), text.end());
        if (goesOn && !m_changes.contains({list, all})) goesOn = visit(keys, row);
        return goesOn;
    });
    showPatched(nullptr);
}

}  // namespace cdb
