#include "manager/configured.h"

#include <algorithm>

namespace manager {
namespace {

constexpr const char* kCollector = "/config/oam/sflow/collector";
constexpr const char* kInterface = "/config/oam/sflow/interface";
constexpr std::array<const char*, kKinds> kAttached = {
    "/config/oam/sflow/interface/flow-sampling-collector",
    "/config/oam/sflow/interface/counter-sampling-collector"};

/// Longer than any name in the configuration; the store takes no key of any length.
constexpr std::size_t kMaxName = 255;

/// The leaf's explicit value, or null.
const cdb::Value* Leaf(const cdb::Row& row, const char* name)
{
    const auto at = std::find_if(row.leaves.begin(), row.leaves.end(),
                                 [name](const auto& leaf) { return leaf.first == name; });
    return at == row.leaves.end() ? nullptr : &at->second;
}

}  // namespace

ConfiguredReader::ConfiguredReader(const cdb::StoreReader& store)
    : m_collector(store.Schema().Find(kCollector)),
      m_interface(store.Schema().Find(kInterface)),
      m_attached{},
      m_rows(store.Read())
{
    for (std::size_t kind = 0; kind < kKinds; ++kind) m_attached[kind] = store.Schema().Find(kAttached[kind]);
}

std::optional<Configured::Collector> ConfiguredReader::Collector(const std::string& name) const
{
    if (m_collector == cdb::kNoNode || name.size() > kMaxName) return std::nullopt;
    const auto row = m_rows.Get({m_collector, {name}});
    if (!row) return std::nullopt;
    const cdb::Value* enabled = Leaf(*row, "enabled");
    return Configured::Collector{enabled == nullptr || *enabled == cdb::Value(true)};
}

std::optional<Configured::Interface> ConfiguredReader::Interface(const std::string& name,
                                                                 bool withCollectors) const
{
    if (m_interface == cdb::kNoNode || name.size() > kMaxName) return std::nullopt;
    const auto row = m_rows.Get({m_interface, {name}});
    if (!row) return std::nullopt;
    Configured::Interface interface;
    interface.ownRate = Leaf(*row, "sampling-rate") != nullptr;
    for (std::size_t kind = 0; withCollectors && kind < kKinds; ++kind) {
        if (m_attached[kind] == cdb::kNoNode) continue;
        m_rows.Scan(m_attached[kind], {name}, 0, [&](const auto& keys, const cdb::Row&) {
            interface.collectors[kind].push_back(keys.back());
            return true;
        });
    }
    return interface;
}

std::vector<std::string> ConfiguredReader::Collectors(const std::string& after, std::size_t most) const
{
    return Names(m_collector, after, most);
}

std::vector<std::string> ConfiguredReader::Interfaces(const std::string& after, std::size_t most) const
{
    return Names(m_interface, after, most);
}

std::vector<std::string> ConfiguredReader::Names(cdb::NodeId list, const std::string& after,
                                                 std::size_t most) const
{
    std::vector<std::string> names;
    if (list == cdb::kNoNode || most == 0) return names;
    m_rows.ScanAfter(list, {}, {after.substr(0, kMaxName)}, [&](const auto& keys, const cdb::Row&) {
        if (keys.back() > after) names.push_back(keys.back());
        return names.size() < most;
    });
    return names;
}

}  // namespace manager
