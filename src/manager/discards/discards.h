// SPDX-License-Identifier: Apache-2.0
// Dropped packets from the kernel to the collectors that want to hear of them. Looks at drops while there is
// such a collector, at the interfaces that the settings say; keeps each data source's sequence, and what is
// shown of drops. The reconciler says which interfaces and collectors there are.

#ifndef MANAGER_DISCARDS_DISCARDS_H
#define MANAGER_DISCARDS_DISCARDS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "capture/drop_source.h"
#include "manager/discards/drop_rates.h"
#include "manager/discards/status.h"
#include "wire/discard.h"

namespace base {
class Timers;
}  // namespace base
namespace net {
class Links;
}

namespace manager {

class Exporter;
class OwnSettings;
class Stream;

class Discards final : public capture::DropSink {
public:
    struct Parts {
        base::Timers& timers;
        const net::Links& links;
        const OwnSettings& own;
        Exporter& exporter;
    };
    using MakeSource = std::function<std::unique_ptr<capture::DropSource>(capture::DropSink& sink)>;
    using WallClock = std::function<WallTime()>;

    /// `make` throws capture::Unavailable if drops can't be seen. The parts must outlive it.
    Discards(const Parts& parts, MakeSource make, WallClock clock);

    /// The kernel interface is one of the configuration: its name there, and how much of a packet's beginning
    /// is sent.
    void SetInterface(std::uint32_t ifIndex, const std::string& name, std::uint16_t headerSize);
    /// It is no longer one. What was dropped there before is told.
    void UnsetInterface(std::uint32_t ifIndex);
    /// The kernel interface is gone.
    void Forget(std::uint32_t ifIndex);

    /// The collector wants to hear of drops. Null: no longer, or it goes; it is told what was dropped before.
    void SetCollector(const std::string& name, Stream* stream);
    /// Limit or interfaces of the own settings have changed.
    void Reconcile();
    /// The sequences of all data sources begin anew; what was dropped before is told with the old ones.
    void Restart();
    /// Tells what waits; looks at nothing any more.
    void End();

    [[nodiscard]] DiscardSource Source() const;
    /// The drops of all interfaces, in ascending order of their names. Reads the source's counts.
    [[nodiscard]] std::vector<DropsAtInterface> Drops() const;

    void OnDrops(std::span<const capture::Drop> drops) noexcept override;
    void OnDrained() noexcept override;

private:
    /// A data source: an interface that has had drops, or is one of the configuration.
    struct Port {
        std::string name;  // in the configuration; empty: it is not there
        std::uint16_t headerSize = 0;
        std::uint32_t sequence = 0;  // of the last notification
        std::uint64_t untold = 0;    // before the source counted those of now
    };
    using Reason = std::pair<std::uint32_t, std::uint32_t>;  // interface, the kernel's number

    void ApplySoon();
    void Apply();
    void Start();
    void Stop();
    void TakeUnconfigured();
    void AddToSource(std::uint32_t ifIndex);
    void TakeFromSource(std::uint32_t ifIndex);
    void LookLater();
    void Tell(const capture::Drop& drop);
    [[nodiscard]] std::uint16_t LargestHeader() const;
    [[nodiscard]] std::string NameOf(std::uint32_t ifIndex) const;
    [[nodiscard]] DropsByReason StatusOf(std::uint32_t ifIndex, const capture::ReasonCount& count) const;

    base::Timers& m_timers;
    const net::Links& m_links;
    const OwnSettings& m_own;
    Exporter& m_exporter;
    const MakeSource m_make;
    const WallClock m_clock;
    std::unique_ptr<capture::DropSource> m_source;  // null: no collector wants drops, or they can't be seen
    bool m_everywhere = false;                      // what the source looks at
    std::string m_error;                            // why they can't be seen
    std::optional<DropRates> m_rates;               // with the source
    std::shared_ptr<void> m_soon, m_look;
    std::map<std::string, Stream*> m_wanting;  // collectors by name
    std::vector<Stream*> m_streams;            // theirs
    std::unordered_map<std::uint32_t, Port> m_ports;
    std::map<std::uint16_t, std::size_t> m_headerSizes;  // of the configured ports: how many have it
    std::map<Reason, DropsByReason::Told> m_told;
    wire::DiscardSample m_discard;  // its fields are filled anew for each
    std::array<std::byte, wire::kMaxDiscardSample> m_encoded{};
};

}  // namespace manager

#endif
