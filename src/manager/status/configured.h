// SPDX-License-Identifier: Apache-2.0
// What the configuration of sFlow has beyond what is in effect: collectors that are disabled, interfaces that
// the daemon never sends, and whether a sampling rate is an interface's own. Read from the database's store,
// for display only.

#ifndef MANAGER_STATUS_CONFIGURED_H
#define MANAGER_STATUS_CONFIGURED_H

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cdb/rows/reader.h"
#include "manager/service/operation.h"

namespace manager {

struct Configured {
    struct Collector {
        bool enabled = true;
    };
    struct Interface {
        bool ownRate = false;                                     // a sampling rate of its own
        std::array<std::vector<std::string>, kKinds> collectors;  // those of each kind, as configured
        [[nodiscard]] const std::vector<std::string>& Of(Kind kind) const
        {
            return collectors[static_cast<std::size_t>(kind)];
        }
    };
    std::map<std::string, Collector> collectors;
    std::map<std::string, Interface> interfaces;
};

/// The configuration of one commit, read on demand. Every call may throw cdb::FatalError if the store can't
/// be read.
class ConfiguredReader {
public:
    /// The store must outlive it.
    explicit ConfiguredReader(const cdb::StoreReader& store);

    /// Nullopt if it is not configured.
    [[nodiscard]] std::optional<Configured::Collector> Collector(const std::string& name) const;
    /// Without its collectors: they cost more than all the rest.
    [[nodiscard]] std::optional<Configured::Interface> Interface(const std::string& name) const;
    /// Adds the collectors of the interface `name`.
    void ReadCollectorsOf(const std::string& name, Configured::Interface& interface) const;

    /// The first entries behind `after`, at most `most`; interfaces without their collectors.
    [[nodiscard]] std::map<std::string, Configured::Collector> Collectors(const std::string& after,
                                                                          std::size_t most) const;
    [[nodiscard]] std::map<std::string, Configured::Interface> Interfaces(const std::string& after,
                                                                          std::size_t most) const;

private:
    template <typename Entry>
    [[nodiscard]] std::map<std::string, Entry> Entries(cdb::NodeId list, const std::string& after,
                                                       std::size_t most) const;

    cdb::NodeId m_collector, m_interface;
    std::array<cdb::NodeId, kKinds> m_attached;
    cdb::StoreReader::Snapshot m_rows;
};

}  // namespace manager

#endif
