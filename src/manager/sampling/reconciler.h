// SPDX-License-Identifier: Apache-2.0
// Ties the state to the kernel: binds configured interfaces to kernel interfaces as these come and go, has
// packets sampled there for the interface's flow collectors, and tells the poller which counters to send. The
// sampled packets themselves go through flow_sample_pipeline.h.

#ifndef MANAGER_SAMPLING_SAMPLING_H
#define MANAGER_SAMPLING_SAMPLING_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "manager/sampling/configured_interface.h"
#include "manager/sampling/flow_sample_pipeline.h"
#include "manager/sampling/traffic_watch.h"
#include "manager/service/observer.h"
#include "manager/service/status.h"
#include "net/links/links.h"

namespace capture {
class PacketSource;
}
namespace base {
class Timers;
}  // namespace base
namespace net {
class Forwarding;
}

namespace manager {

class Exporter;
class Poller;

class Sampling final : public Observer, public net::LinkObserver {
public:
    struct Parts {
        base::Timers& timers;
        net::Links& links;
        net::Forwarding& forwarding;
        Exporter& exporter;
        Poller& poller;
    };
    using WallClock = std::function<WallTime()>;

    /// Between two tries to sample at interfaces that the source has refused: what it lacked may be available
    /// again.
    static constexpr std::chrono::seconds kRetry{5};

    /// `added` is a direction that is sampled besides the one each interface asks for. The parts must
    /// outlive it. Add it to the state as an observer; it adds itself to the links.
    Sampling(const Parts& parts, std::optional<Direction> added, WallClock clock);

    /// Takes the sampled packets: give it to the source.
    [[nodiscard]] capture::SampleSink& Sink() { return m_flows; }

    /// The source to sample with; null: nothing is sampled, counters are. The source must live until End.
    void SetSource(capture::PacketSource* source, SourceStatus status);
    /// Ends all sampling: the source may be destroyed then.
    void End();

    [[nodiscard]] const SourceStatus& Source() const { return m_sourceStatus; }
    /// What happens at each interface of the state, by its name. Reads the source's counts.
    [[nodiscard]] std::map<std::string, InterfaceStatus> Interfaces();
    /// The same for one of them; an empty status if the state has no such interface.
    [[nodiscard]] InterfaceStatus Interface(const std::string& name);

    void AgentAddressChanged(std::optional<std::uint32_t> address) override;
    void CollectorChanged(const std::string& name, const CollectorSettings& settings) override;
    void CollectorRemoved(const std::string& name) override;
    void InterfaceChanged(const std::string& name, const InterfaceSettings& settings) override;
    void InterfaceRemoved(const std::string& name) override;
    void Attached(const std::string& interface, Kind kind, const std::string& collector) override;
    void Detached(const std::string& interface, Kind kind, const std::string& collector) override;

    void LinkChanged(const net::Link& link) override;
    void LinkRemoved(const net::Link& link) override;

private:
    void Refresh(ConfiguredInterface& interface);
    void RefreshNamed(const net::Link& link);
    void RefreshWaiting(std::uint32_t ifIndex);
    void WaitFor(ConfiguredInterface& interface, std::uint32_t ifIndex);
    [[nodiscard]] const net::Link* LinkFor(const ConfiguredInterface& interface) const;
    void Bind(ConfiguredInterface& interface, const net::Link& link);
    void Unbind(ConfiguredInterface& interface);
    [[nodiscard]] std::vector<Stream*> ExistingStreams(const std::set<std::string>& collectors) const;
    void RemoveUser(const std::string& collector, ConfiguredInterface& interface);

    [[nodiscard]] std::optional<capture::Settings> WantedSampling(const ConfiguredInterface& interface) const;
    void ApplySampling(ConfiguredInterface& interface);
    void Refused(ConfiguredInterface& interface, const std::string& reason);
    void EndSampling(DataSource& source);
    void ApplyPolling(ConfiguredInterface& interface);
    void UseExpandedEncoding();

    [[nodiscard]] InterfaceStatus StatusOf(const ConfiguredInterface& interface,
                                           const capture::Counts& counts) const;

    base::Timers& m_timers;
    net::Links& m_links;
    Exporter& m_exporter;
    Poller& m_poller;
    const std::optional<Direction> m_added;
    capture::PacketSource* m_source = nullptr;
    SourceStatus m_sourceStatus{.kind = "none", .reason = "", .permission = true};
    FlowSamplePipeline m_flows;
    TrafficWatch m_traffic;
    std::unordered_map<std::string, ConfiguredInterface> m_interfaces;  // pointers to elements are kept
    /// The interfaces that a collector is attached to, for any kind.
    std::unordered_map<std::string, std::set<ConfiguredInterface*>> m_users;
    std::unordered_map<std::uint32_t, std::set<ConfiguredInterface*>> m_waiting;  // by waitsFor
    std::set<ConfiguredInterface*> m_refused;  // those that the source does not sample although it should
    std::shared_ptr<void> m_retry;             // while there are any
};

}  // namespace manager

#endif
