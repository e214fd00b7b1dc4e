// SPDX-License-Identifier: Apache-2.0
// What the suites about dropped packets share: packets that the kernel drops at "busy" for one of two
// reasons, each of them sampled there too, and what collectors, state and metrics say of them.

#ifndef SYSTEM_DROPS_H
#define SYSTEM_DROPS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/metrics.h"
#include "system/own_settings.h"

namespace system_tests {

using support::Bytes;
using support::DecodedDiscard;

// The kernel's reasons, and sFlow's numbers of them.
inline constexpr const char *kNoSocket = "NO_SOCKET", *kOtherHost = "OTHERHOST";
inline constexpr std::uint32_t kPortUnreachable = 3, kUnknownL2 = 284;

/// A setting of collector c1.
inline constexpr const char* kWanted = "set oam sflow-manager collector c1 discards true";

class Drops : public OwnSettings {
protected:
    /// Gives "busy" an address. Skips if this machine does not let drops be seen.
    void SetUp() override;
    [[nodiscard]] WorldOptions Options() const override;

    /// A commit after which dropped packets are looked at.
    void Watch(const std::string& commands);

    /// A packet to this machine where no socket waits for it.
    static Bytes ToNoSocket(std::uint64_t number = 0);
    /// A packet to another host's Ethernet address.
    static Bytes ToOther(std::uint64_t number = 0);
    static void Send(const std::vector<Bytes>& frames, const std::string& device = "far-end");
    static void SendToOther(std::size_t count, const std::string& device = "far-end");

    /// The notifications that have come of an interface, in the order in which they came.
    static std::vector<DecodedDiscard> DiscardsAt(const std::string& device, DecodingCollector& collector);
    std::vector<DecodedDiscard> DiscardsAt(const std::string& device)
    {
        return DiscardsAt(device, *m_collector);
    }
    /// Waits until so many have come, and for more. Returns all.
    static std::vector<DecodedDiscard> AwaitDiscards(const std::string& device, std::size_t count,
                                                     DecodingCollector& collector);
    std::vector<DecodedDiscard> AwaitDiscards(const std::string& device, std::size_t count)
    {
        return AwaitDiscards(device, count, *m_collector);
    }

    /// The names of the interfaces in `show sflow drops | json`.
    std::vector<std::string> InterfacesShown();
    /// The entry of an interface in `show sflow drops | json`; null if there is none.
    nlohmann::json DropsShown(const std::string& device);
    /// Its packets; 0 if there is no entry.
    std::uint64_t PacketsShown(const std::string& device, const char* leaf = "packets");
    static support::Metrics Numbers();

private:
    /// The list in `show sflow drops | json`.
    nlohmann::json AllShown();
};

/// A count of the state.
std::uint64_t CountIn(const nlohmann::json& entry, const char* leaf);

}  // namespace system_tests

#endif
