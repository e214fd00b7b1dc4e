// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/edit_writes.h"

namespace cdb {

EditWrites::EditWrites(const SchemaTable& table, const std::vector<LeafWrite>& writes)
{
    for (const auto& write : writes) {
        // The callpoint was asked about the innermost entry that has one.
        std::size_t entryEnd = 0;
        Place entry;
        std::vector<std::string> keys;
        for (std::size_t i = 0; i < write.path.steps.size(); ++i) {
            const auto& step = write.path.steps[i];
            keys.insert(keys.end(), step.keys.begin(), step.keys.end());
            if (step.keys.empty() || table[step.node].callpoint.empty()) continue;
            entry = {step.node, keys};
            entryEnd = i + 1;
        }
        if (entryEnd == 0) continue;
        Write kept{{}, write.value};
        for (std::size_t i = entryEnd; i < write.path.steps.size(); ++i)
            kept.below.push_back({write.path.steps[i].node, write.path.steps[i].keys});
        m_writes[entry].push_back(std::move(kept));
    }
}

const std::vector<EditWrites::Write>& EditWrites::For(const Place& entry) const
{
    static const std::vector<Write> kNone;
    const auto it = m_writes.find(entry);
    return it == m_writes.end() ? kNone : it->second;
}

}  // namespace cdb
