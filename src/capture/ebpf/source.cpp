// SPDX-License-Identifier: Apache-2.0
// The eBPF source: ports and hooks made and unmade as the caller says, and the ring drained in batches.

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <thread>
#include <utility>

#include <time.h>
#include <boost/asio/io_context.hpp>

#include "capture/ebpf/batch.h"
#include "capture/ebpf/gap.h"
#include "capture/ebpf/grace.h"
#include "capture/ebpf/hooks.h"
#include "capture/ebpf/ports.h"
#include "capture/ebpf/program.h"
#include "capture/ebpf/ring.h"
#include "capture/ebpf/waker.h"
#include "capture/packet_source.h"

namespace capture {
namespace {

constexpr std::chrono::milliseconds kHeartbeat{500};
// How often the end of an interface yields to another CPU that is still writing a record.
constexpr int kUnfinishedTries = 10000;

class EbpfSource final : public PacketSource {
public:
    EbpfSource(boost::asio::io_context& loop, base::Timers& timers, SampleSink& sink,
               const SourceOptions& options, EbpfHook hook)
        : m_loop(loop), m_timers(timers), m_sink(sink), m_grace(timers, options.expediteRcu)
    {
        ClsactClaim claim;
        SweepClsact(claim);
        Load(options, hook, std::move(claim));
        m_ring.emplace(m_program->RingFile(), m_program->RingSize());
        m_batch.emplace(*m_program, *m_ring, m_ports);
        m_waker.emplace(loop, timers, *m_ring, m_program->Shared().wake, [this] { return Look(); });
    }

    [[nodiscard]] std::string Kind() const override { return m_hooks->Kind(); }

    void Add(std::uint32_t ifIndex, const Settings& settings) override
    {
        if (m_ports.Find(ifIndex) != nullptr) return Change(ifIndex, settings);
        EbpfPorts::Port& port = m_ports.Add(ifIndex);
        port.settings = settings;
        port.settings.ingress = port.settings.egress = false;
        try {
            Apply(port, settings);
        } catch (...) {
            Forget(ifIndex);
            throw;
        }
    }

    void Change(std::uint32_t ifIndex, const Settings& settings) override
    {
        EbpfPorts::Port* port = m_ports.Find(ifIndex);
        if (port == nullptr) return Add(ifIndex, settings);
        if (port->settings != settings) Apply(*port, settings);
    }

    [[nodiscard]] bool Sampled(std::uint32_t ifIndex) const override
    {
        const EbpfPorts::Port* port = m_ports.Find(ifIndex);
        if (port == nullptr) return false;
        const Settings& settings = port->settings;
        return (settings == port->wanted || settings.ingress || settings.egress) &&
               (!settings.ingress || m_hooks->IsAttached(ifIndex, false)) &&
               (!settings.egress || m_hooks->IsAttached(ifIndex, true));
    }

    Counts Remove(std::uint32_t ifIndex) override
    {
        if (m_ports.Find(ifIndex) == nullptr) return {};
        return Forget(ifIndex);
    }

    [[nodiscard]] Counts Read(std::uint32_t ifIndex) override
    {
        const EbpfPorts::Port* port = m_ports.Find(ifIndex);
        return port == nullptr ? Counts{} : ReadPort(*port);
    }

    [[nodiscard]] std::vector<InterfaceCounts> ReadAll() override
    {
        std::vector<InterfaceCounts> all;
        all.reserve(m_ports.Size());
        for (const auto& port : m_ports.Slots())
            if (port.incarnation != 0) all.push_back({port.ifIndex, ReadPort(port)});
        return all;
    }

    void Drain() override
    {
        if (const std::size_t found = HandOver(); found != 0) m_waker->Continue(found);
        m_sink.OnDrained();
    }

private:
    void Load(const SourceOptions& options, EbpfHook hook, ClsactClaim claim)
    {
        m_program.emplace(options, hook == EbpfHook::kClsact);
        const bool tcx = hook != EbpfHook::kClsact && TcxSupported(m_program->IngressFile());
        if (tcx) return UseHooks(MakeTcxMaker(m_program->IngressFile(), m_program->EgressFile()));
        if (hook == EbpfHook::kTcx)
            throw Unavailable(Unavailable::Cause::kKernel, "the kernel has no tcx hooks; Linux 6.6 has");
        if (hook == EbpfHook::kBest) m_program.emplace(options, true);
        UseHooks(MakeClsactMaker(m_program->IngressFile(), m_program->EgressFile(), std::move(claim)));
        Beat();
    }

    void UseHooks(std::shared_ptr<HookMaker> maker)
    {
        m_hooks.emplace(
            m_loop, m_grace, std::move(maker),
            HookEvents{[this](std::uint32_t ifIndex, bool egress, const Unavailable& reason) {
                           OnRefused(ifIndex, egress, reason);
                       },
                       [this](std::uint32_t ifIndex, bool egress) { OnDetached(ifIndex, egress); }});
    }

    // Says that the process runs: without it a filter that outlives us would fill a ring that has no reader.
    void Beat()
    {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        m_program->Shared().heartbeat =
            static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(now.tv_nsec);
        m_hooks->Tend();
        m_beat = m_timers.After(kHeartbeat, [this] { Beat(); });
    }

    // Applies the settings. After an exception the port's settings are what is in effect or asked for.
    void Apply(EbpfPorts::Port& port, const Settings& settings)
    {
        const bool ingress = port.settings.ingress;
        const bool egress = port.settings.egress;
        port.wanted = settings;
        port.settings.rate = settings.rate;
        port.settings.headerSize = settings.headerSize;
        if (settings.ingress) Make(port.ifIndex, false, port.ingressMade);
        if (settings.egress) Make(port.ifIndex, true, port.egressMade);
        PortSettings wanted{
            .rate = std::max<std::uint32_t>(settings.rate, 1),
            .scale = MakeGapScale(settings.rate),
            .wanted = static_cast<std::uint32_t>(
                std::clamp<std::size_t>(settings.headerSize, kMinHeader, kMaxHeader)),
            .slot = port.slot,
            .incarnation = port.incarnation,
        };
        if (settings.ingress) m_program->Set(KeyOf(port.ifIndex, false), wanted);
        wanted.slot |= kEgressBit;
        if (settings.egress) m_program->Set(KeyOf(port.ifIndex, true), wanted);

        if (ingress && !settings.ingress) Detach(port.ifIndex, false);
        port.settings.ingress = ingress && settings.ingress;
        if (egress && !settings.egress) Detach(port.ifIndex, true);
        port.settings.egress = egress && settings.egress;
        if (settings.ingress && !ingress) Attach(port.ifIndex, false, port.settings.ingress);
        if (settings.egress && !egress) Attach(port.ifIndex, true, port.settings.egress);
    }

    void Make(std::uint32_t ifIndex, bool egress, bool& made)
    {
        if (made) return;  // its counts stay until the interface is removed
        m_program->Create(KeyOf(ifIndex, egress));
        made = true;
    }

    void Attach(std::uint32_t ifIndex, bool egress, bool& attached)
    {
        m_hooks->Attach(ifIndex, egress);
        attached = true;
    }

    // The counts stay.
    void Detach(std::uint32_t ifIndex, bool egress)
    {
        m_program->Stop(KeyOf(ifIndex, egress));
        (void)m_hooks->Detach(ifIndex, egress);
    }

    Counts Forget(std::uint32_t ifIndex)
    {
        EbpfPorts::Port& port = *m_ports.Find(ifIndex);
        const std::array<bool, 2> made{port.ingressMade, port.egressMade};
        for (const bool egress : {false, true})
            if (made[egress]) m_program->Stop(KeyOf(ifIndex, egress));
        const Counts last = End(port);
        m_ports.Remove(ifIndex);
        for (const bool egress : {false, true})
            if (made[egress] && m_hooks->Detach(ifIndex, egress)) m_program->Erase(KeyOf(ifIndex, egress));
        m_sink.OnDrained();
        return last;
    }

    // Hands over all that was sampled of the packets that are counted by now, and returns the counts with
    // what was handed over besides. A packet that another CPU has not counted yet comes after the end.
    Counts End(EbpfPorts::Port& port)
    {
        m_batch->ReadLast(port);
        const unsigned long end = m_ring->Produced();
        for (int tries = 0; m_ring->IsBefore(end) && tries < kUnfinishedTries; ++tries) {
            if (tries > 0) std::this_thread::yield();  // another CPU is writing a record
            if (const std::size_t found = HandOver(); found != 0) m_waker->Continue(found);
        }
        return EbpfBatch::Last(port);
    }

    void OnRefused(std::uint32_t ifIndex, bool egress, const Unavailable& reason)
    {
        EbpfPorts::Port* port = m_ports.Find(ifIndex);
        if (port == nullptr) return;
        m_program->Stop(KeyOf(ifIndex, egress));
        (egress ? port->settings.egress : port->settings.ingress) = false;
        m_sink.OnRefused(ifIndex, reason);
    }

    void OnDetached(std::uint32_t ifIndex, bool egress)
    {
        const EbpfPorts::Port* port = m_ports.Find(ifIndex);
        if (port == nullptr || !(egress ? port->egressMade : port->ingressMade))
            m_program->Erase(KeyOf(ifIndex, egress));
    }

    Counts ReadPort(const EbpfPorts::Port& port)
    {
        Counts counts;
        for (const bool egress : {false, true}) {
            if (egress ? !port.egressMade : !port.ingressMade) continue;
            const Counts one = m_program->Read(KeyOf(port.ifIndex, egress), port.incarnation);
            counts.pool += one.pool;
            counts.drops += one.drops;
        }
        return counts;
    }

    // The waker's look: tells the sink only if there was something.
    std::size_t Look()
    {
        const std::size_t found = HandOver();
        if (found != 0) m_sink.OnDrained();
        return found;
    }

    std::size_t HandOver()
    {
        m_program->Shared().wake.pressing = 0;
        m_batch->BeginLook();
        return m_ring->HandOver([this] {
            const std::span<const Sample> samples = m_batch->Next();
            if (!samples.empty()) m_sink.OnSamples(samples);
        });
    }

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    SampleSink& m_sink;
    GracePeriods m_grace;
    std::optional<EbpfProgram> m_program;
    std::optional<EbpfHooks> m_hooks;
    std::optional<BpfRingBuffer> m_ring;
    EbpfPorts m_ports;
    std::optional<EbpfBatch> m_batch;
    std::shared_ptr<void> m_beat;
    std::optional<EbpfWaker> m_waker;
};

}  // namespace

std::unique_ptr<PacketSource> MakeEbpfSource(boost::asio::io_context& loop, base::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options, EbpfHook hook)
{
    return std::make_unique<EbpfSource>(loop, timers, sink, options, hook);
}

}  // namespace capture
