// SPDX-License-Identifier: Apache-2.0
// The manager's own settings, which the configuration daemon knows nothing of: what is configured at
// /config/oam/sflow-manager. The one place where they stand; everything else reads them here, and is told
// when they change. A value with observers: knows no store and no connection. The follower writes it
// (settings_follower.h); what the daemon tells is in the service's table.

#ifndef MANAGER_SETTINGS_OWN_SETTINGS_H
#define MANAGER_SETTINGS_OWN_SETTINGS_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "manager/service/operation.h"

namespace manager {

/// How datagrams go to a collector. The defaults leave everything to the kernel.
struct SendSettings {
    std::uint32_t sourceAddress = 0;  // network byte order in memory, as in_addr; 0: the kernel chooses
    std::uint8_t dscp = 0;            // 0 to 63 (RFC 2474)
    std::string device = {};          // the output device or VRF; empty: the routes decide
    friend bool operator==(const SendSettings&, const SendSettings&) = default;
};

/// What is configured of one collector, whether there is such a collector or not.
struct OwnCollector {
    SendSettings send = {};
    bool discards = false;  // wants notifications of discarded packets
    friend bool operator==(const OwnCollector&, const OwnCollector&) = default;
};

/// What is configured of the manager as a whole.
struct OwnGeneral {
    std::uint32_t subAgent = 0;
    /// Sampled besides what interfaces ask for; empty: nothing is said.
    std::optional<Direction> direction = {};
    std::uint32_t discardLimit = 100;  // notifications of discarded packets a second; 0: none
    bool discardsEverywhere = false;   // at every interface, else at those of the configuration
    friend bool operator==(const OwnGeneral&, const OwnGeneral&) = default;
};

/// What has been read, and takes the place of what is held.
struct OwnUpdate {
    std::optional<OwnGeneral> general = {};  // empty: as it is
    /// By name; empty: there is no such entry.
    std::map<std::string, std::optional<OwnCollector>> collectors = {};
    bool whole = false;  // entries that are not named here are gone
};

/// What an update has changed. `collectors`: those of which something is different now, in ascending order.
struct OwnChange {
    bool subAgent = false;
    bool direction = false;
    bool discards = false;  // limit or interfaces, or which collectors want notifications of discards
    std::vector<std::string> collectors = {};
    [[nodiscard]] bool None() const { return !subAgent && !direction && !discards && collectors.empty(); }
};

class OwnSettings {
public:
    using Collectors = std::map<std::string, OwnCollector>;
    using Observer = std::function<void(const OwnChange&)>;

    /// `direction` holds while none is configured.
    explicit OwnSettings(std::optional<Direction> direction = std::nullopt) : m_unsaid(direction) {}
    OwnSettings(const OwnSettings&) = delete;
    OwnSettings& operator=(const OwnSettings&) = delete;

    [[nodiscard]] std::uint32_t SubAgent() const { return m_general.subAgent; }
    /// Sampled at each interface besides what that asks for; empty: nothing.
    [[nodiscard]] std::optional<Direction> AddedDirection() const
    {
        return m_general.direction ? m_general.direction : m_unsaid;
    }
    /// The most notifications of discarded packets a second; 0: none.
    [[nodiscard]] std::uint32_t DiscardLimit() const { return m_general.discardLimit; }
    /// Whether discarded packets are told of every interface, else of those that the configuration has.
    [[nodiscard]] bool DiscardsEverywhere() const { return m_general.discardsEverywhere; }

    /// Those that have an entry.
    [[nodiscard]] const Collectors& AllCollectors() const { return m_collectors; }
    /// The defaults if there is no such entry. Good until the next update.
    [[nodiscard]] const OwnCollector& Of(const std::string& collector) const;

    /// Calls the observer after each update that has changed something; observers in the order in which they
    /// came. None of them may update the settings.
    void WhenChanged(Observer observer) { m_observers.push_back(std::move(observer)); }

    void Update(const OwnUpdate& update);

private:
    void SetGeneral(const OwnGeneral& general, OwnChange& change);
    void SetCollector(const std::string& name, const std::optional<OwnCollector>& now, OwnChange& change);

    const std::optional<Direction> m_unsaid;
    OwnGeneral m_general;
    Collectors m_collectors;
    std::vector<Observer> m_observers;
};

}  // namespace manager

#endif
