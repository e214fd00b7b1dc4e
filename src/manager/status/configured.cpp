// SPDX-License-Identifier: Apache-2.0
#include "manager/status/configured.h"

#include <algorithm>

namespace manager {
namespace {

constexpr const char* kCollector = "/config/oam/sflow/collector";
constexpr const char* kInterface = "/config/oam/sflow/interface";
constexpr std::array<const char*, kKinds> kAttached = {
    "/config/oam/sflow/interface/flow-sampling-collector",
    "/config/oam/sflow/interface/counter-sampling-collector"};

/// Longer than any name in the configuration; the store bounds the length of a key.
constexpr std::size_t kMaxName = 255;

/// The leaf's explicit value, or null.
const cdb::Value* Leaf(const cdb::Row& row, const char* name)
{
    const auto at = std::find_if(row.leaves.begin(), row.leaves.end(),
                                 [name](const auto& leaf) { return leaf.first == name; });
    return at == row.leaves.end() ? nullptr : &at->second;
}

void Fill(const cdb::Row& row, Configured::Collector& collector)
{
    const cdb::Value* enabled = Leaf(row, "enabled");
    collector.enabled = enabled == nullptr || *enabled == cdb::Value(true);
}

void Fill(const cdb::Row& row, Configured::Interface& interface)
{
    interface.ownRate = Leaf(row, "sampling-rate") != nullptr;
}

template <typename Entry>
std::optional<Entry> EntryOf(const cdb::StoreReader::Snapshot& rows, cdb::NodeId list,
                             const std::string& name)
{
    if (list == cdb::kNoNode || name.size() > kMaxName) return std::nullopt;
    const auto row = rows.Get({list, {name}});
    if (!row) return std::nullopt;
    Entry entry;
    Fill(*row, entry);
    return entry;
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
    return EntryOf<Configured::Collector>(m_rows, m_collector, name);
}

std::optional<Configured::Interface> ConfiguredReader::Interface(const std::string& name) const
{
    return EntryOf<Configured::Interface>(m_rows, m_interface, name);
}

void ConfiguredReader::ReadCollectorsOf(const std::string& name, Configured::Interface& interface) const
{
    for (std::size_t kind = 0; kind < kKinds; ++kind) {
        if (m_attached[kind] == cdb::kNoNode) continue;
        m_rows.Scan(m_attached[kind], {name}, 0, [&](const auto& keys, const cdb::Row&) {
            interface.collectors[kind].push_back(keys.back());
            return true;
        });
    }
}

std::map<std::string, Configured::Collector> ConfiguredReader::Collectors(const std::string& after,
                                                                          std::size_t most) const
{
    return Entries<Configured::Collector>(m_collector, after, most);
}

std::map<std::string, Configured::Interface> ConfiguredReader::Interfaces(const std::string& after,
                                                                          std::size_t most) const
{
    return Entries<Configured::Interface>(m_interface, after, most);
}

template <typename Entry>
std::map<std::string, Entry> ConfiguredReader::Entries(cdb::NodeId list, const std::string& after,
                                                       std::size_t most) const
{
    std::map<std::string, Entry> entries;
    if (list == cdb::kNoNode || most == 0) return entries;
    m_rows.ScanAfter(list, {}, {after.substr(0, kMaxName)}, [&](const auto& keys, const cdb::Row& row) {
        if (keys.back() > after) Fill(row, entries.emplace_hint(entries.end(), keys.back(), Entry{})->second);
        return entries.size() < most;
    });
    return entries;
}

}  // namespace manager
