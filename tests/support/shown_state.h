// SPDX-License-Identifier: Apache-2.0
// Answers to questions for state as text that tests can compare: JSON with all values as strings, leaf-lists
// and lists as arrays, the keys of an entry in "keys".

#ifndef SUPPORT_SHOWN_STATE_H
#define SUPPORT_SHOWN_STATE_H

#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "ipc/cdb.pb.h"

namespace support {

inline void Show(const ipc::cdb::StateReply& part, const ipc::cdb::StateNode& node,
                 nlohmann::ordered_json& shown)
{
    static const std::set<std::string> kLeafLists = {"limitation", "flow-collector", "counter-collector",
                                                     "problem"};
    for (int i = 0; i < node.leaves_size(); ++i) {
        const std::string& name = part.names(static_cast<int>(node.leaves(i)));
        if (kLeafLists.contains(name))
            shown[name].push_back(node.values(i));
        else
            shown[name] = node.values(i);
    }
    for (const auto& child : node.children()) {
        const std::string& name = part.names(static_cast<int>(child.name()));
        if (child.keys().empty()) {
            Show(part, child, shown[name]);
            continue;
        }
        nlohmann::ordered_json entry;
        for (const std::string& key : child.keys()) entry["keys"].push_back(key);
        Show(part, child, entry);
        shown[name].push_back(std::move(entry));
    }
}

/// The container at the part's only path.
inline nlohmann::ordered_json Shown(const ipc::cdb::StateReply& part)
{
    nlohmann::ordered_json shown = nlohmann::ordered_json::object();
    for (const auto& tree : part.trees()) Show(part, tree.node(), shown);
    return shown;
}

}  // namespace support

#endif
