// SPDX-License-Identifier: Apache-2.0
#include "manager/settings/own_reader.h"

#include <algorithm>
#include <variant>

#include <switch_schema.h>

#include "cdb/model/name.h"
#include "ipc/cdb.pb.h"

namespace manager {
namespace {

using cdb::NodeId;
using cdb::Row;

/// The leaf's explicit value into `to`, which keeps its default if there is none or its type is another.
template <typename Type, typename Target>
void Take(const Row& row, const char* name, Target& to)
{
    const auto at = std::ranges::find(row.leaves, name, [](const auto& leaf) { return leaf.first; });
    if (at == row.leaves.end()) return;
    if (const auto* value = std::get_if<Type>(&at->second)) to = static_cast<Target>(*value);
}

/// As the model names them; empty for no or another name.
std::optional<Direction> DirectionOf(const std::string& name)
{
    if (name == "ingress") return Direction::kIngress;
    if (name == "egress") return Direction::kEgress;
    if (name == "both") return Direction::kBoth;
    return std::nullopt;
}

OwnGeneral GeneralOf(const Row& row)
{
    OwnGeneral general;
    std::string direction, where;
    Take<std::uint32_t>(row, "sub-agent", general.subAgent);
    Take<std::string>(row, "direction", direction);
    Take<std::uint32_t>(row, "discard-limit", general.discardLimit);
    Take<std::string>(row, "discard-interfaces", where);
    general.direction = DirectionOf(direction);
    general.discardsEverywhere = where == "all";
    return general;
}

OwnCollector CollectorOf(const Row& row)
{
    OwnCollector collector;
    cdb::Ipv4 source;
    Take<cdb::Ipv4>(row, "source-address", source);
    collector.send.sourceAddress = source.word;
    Take<std::uint16_t>(row, "dscp", collector.send.dscp);
    Take<std::string>(row, "device", collector.send.device);
    Take<bool>(row, "discards", collector.discards);
    return collector;
}

/// The child of that node, which is no list's entry; null if there is none.
const ipc::cdb::ChangeNode* Child(const ipc::cdb::ChangeNode& parent, NodeId node)
{
    const auto& children = parent.children();
    const auto at = std::ranges::find(children, node, [](const auto& child) { return child.node(); });
    return at == children.end() ? nullptr : &*at;
}

}  // namespace

void FillSubscription(ipc::cdb::Subscribe& subscribe)
{
    subscribe.set_id(0);
    // Before the configuration daemon: a collector that is configured together with its settings begins with
    // them.
    subscribe.set_priority(0);
    subscribe.set_ns(switch_schema::ns_switch_oam_sflow_manager);
    subscribe.set_path(kOwnPath);
}

OwnTouched TouchedBy(const cdb::SchemaTable& schema, const ipc::cdb::ChangeNode& root)
{
    OwnTouched touched;
    const NodeId top = schema.Find(kOwnPath);
    const ipc::cdb::ChangeNode* at = top == cdb::kNoNode ? nullptr : &root;
    if (at != nullptr)
        for (const NodeId node : schema.WayTo(top))
            if (at != nullptr && node != root.node()) at = Child(*at, node);
    if (at == nullptr) {
        touched.whole = true;
        return touched;
    }
    const NodeId collector = schema.Child(top, "collector");
    for (const ipc::cdb::ChangeNode& child : at->children()) {
        if (child.node() != collector)
            touched.general = true;
        else if (child.keys_size() == 1)
            touched.collectors.push_back(child.keys(0));
        else
            touched.whole = true;
    }
    return touched;
}

OwnUpdate ReadOwn(const cdb::StoreReader& store, const OwnTouched& touched)
{
    OwnUpdate update;
    const NodeId top = store.Schema().Find(kOwnPath);
    const NodeId list = top == cdb::kNoNode ? cdb::kNoNode : store.Schema().Child(top, "collector");
    const auto rows = store.Read();
    update.whole = touched.whole;
    if (touched.general || touched.whole) {
        const auto row = top == cdb::kNoNode ? std::nullopt : rows.Get({top, {}});
        update.general = GeneralOf(row.value_or(Row{}));
    }
    if (list == cdb::kNoNode) return update;
    if (touched.whole) {
        rows.Scan(list, {}, 0, [&](const auto& keys, const Row& row) {
            update.collectors.emplace_hint(update.collectors.end(), keys.back(), CollectorOf(row));
            return true;
        });
        return update;
    }
    for (const std::string& name : touched.collectors) {
        if (!cdb::IsCollectorName(name)) continue;  // the store has no such key
        const auto row = rows.Get({list, {name}});
        update.collectors[name] = row ? std::optional(CollectorOf(*row)) : std::nullopt;
    }
    return update;
}

}  // namespace manager
