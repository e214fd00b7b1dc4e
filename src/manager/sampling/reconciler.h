// SPDX-License-Identifier: Apache-2.0
// Brings what the manager was told into effect: compares what the service's table and the own settings say of
// an interface or a collector with what is in effect, and changes what differs. Binds the interfaces of the
// table to kernel interfaces as these come and go, has packets sampled there, and tells the poller which
// counters to send and the discards which interfaces and collectors there are. The sampled packets themselves
// go through flow_sample_pipeline.h.

#ifndef MANAGER_SAMPLING_RECONCILER_H
#define MANAGER_SAMPLING_RECONCILER_H

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

#include "manager/sampling/flow_sample_pipeline.h"
#include "manager/sampling/traffic_watch.h"
#include "manager/service/service_table.h"
#include "manager/settings/own_settings.h"
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

class Discards;
class Exporter;
class Poller;

class Reconciler final : public net::LinkObserver {
public:
    struct Parts {
        const ServiceTable& table;
        const OwnSettings& own;
        base::Timers& timers;
        net::Links& links;
        net::Forwarding& forwarding;
        Exporter& exporter;
        Poller& poller;
        Discards& discards;
    };
    using WallClock = std::function<WallTime()>;

    /// Between two tries to sample at interfaces that the source has refused: what it lacked may be available
    /// again.
    static constexpr std::chrono::seconds kRetry{5};
    /// How many interfaces are given another added direction in one turn of the loop: with packet sockets
    /// each takes some 12 ms of it.
    static constexpr std::size_t kTurned = 4;

    /// The parts must outlive it. It adds itself to the links.
    Reconciler(const Parts& parts, const WallClock& clock);

    /// Takes the sampled packets: give it to the source.
    [[nodiscard]] capture::SampleSink& Sink() { return m_flows; }
    /// Where it samples. Valid as long as it is.
    [[nodiscard]] DataSources& Sampled() { return m_flows.Sources(); }

    /// The source to sample with; null: nothing is sampled, counters are. The source must live until End.
    void SetSource(capture::PacketSource* source, SourceStatus status);
    /// Ends all sampling: the source may be destroyed then.
    void End();

    /// The table has changed there. A collector that goes is given what was sampled for it before.
    void Reconcile(const Touched& touched);
    /// The own settings have changed there. Another added direction comes into effect at one interface after
    /// the other, in turns of the loop.
    void Reconcile(const OwnChange& change);

    void LinkChanged(const net::Link& link) override;
    void LinkRemoved(const net::Link& link) override;

    [[nodiscard]] const SourceStatus& Source() const { return m_sourceStatus; }
    /// What happens at each interface of the table, by its name. Reads the source's counts.
    [[nodiscard]] std::map<std::string, InterfaceStatus> Interfaces();
    /// The same for one of them; an empty status if the table has no such interface.
    [[nodiscard]] InterfaceStatus Interface(const std::string& name);

private:
    /// An interface of the table, or one that has just gone from it.
    struct Binding {
        DataSource* source = nullptr;  // null: no kernel interface has its name
        std::uint32_t waitsFor = 0;    // the kernel interface that has its name but serves another; 0: none
    };

    // Names are copies: what they would refer to may change meanwhile.
    void ReconcileInterface(std::string name);
    void ReconcileCollector(const std::string& name);
    void ReconcileNamed(const net::Link& link);
    void ReconcileWaiting(std::uint32_t ifIndex);

    void WaitFor(const std::string& name, Binding& binding, std::uint32_t ifIndex);
    [[nodiscard]] bool IsTaken(const net::Link& link, const std::string& by) const;
    void Bind(const std::string& name, Binding& binding, const net::Link& link);
    void Unbind(Binding& binding);

    void ApplyStreams(const ServiceTable::Interface& interface, DataSource& source);
    [[nodiscard]] std::vector<Stream*> WantedStreams(const ServiceTable::Attachments& attachments) const;
    [[nodiscard]] std::optional<capture::Settings> WantedSampling(const InterfaceSettings& settings,
                                                                  const DataSource& source) const;
    void ApplySampling(const InterfaceSettings& settings, DataSource& source);
    void Refused(DataSource& source, const std::string& reason);
    void EndSampling(DataSource& source);
    void UseExpandedEncoding();
    void BeginAnew(wire::Encoding encoding);
    void TurnInterfaces();
    void DrainOnce();

    [[nodiscard]] const DataSource* SourceOf(const std::string& name) const;
    [[nodiscard]] InterfaceStatus StatusOf(const std::string& name, const DataSource* source,
                                           const capture::Counts& counts) const;

    const ServiceTable& m_table;
    const OwnSettings& m_own;
    base::Timers& m_timers;
    net::Links& m_links;
    Exporter& m_exporter;
    Poller& m_poller;
    Discards& m_discards;
    capture::PacketSource* m_source = nullptr;
    SourceStatus m_sourceStatus{.kind = "none", .reason = "", .permission = true};
    FlowSamplePipeline m_flows;
    TrafficWatch m_traffic;
    std::unordered_map<std::string, Binding> m_bindings;                 // by name in the table
    std::unordered_map<std::uint32_t, std::set<std::string>> m_waiting;  // the names, by waitsFor
    std::set<std::string> m_refused;  // those that the source does not sample although it should
    std::shared_ptr<void> m_retry;    // while there are any
    std::string m_turned;             // the last interface that has the added direction of now
    std::shared_ptr<void> m_turn;     // while there are others
    bool m_drained = false;           // since the table last changed
};

}  // namespace manager

#endif
