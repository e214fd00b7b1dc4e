// Sampling with packet sockets: who is sampled how, what was counted, and when blocks are read. The rest
// of it: ring_filter.h (who is drawn), ring_socket.h (the sockets), ring_blocks.h (the memory).
//
// What this source can't do: it is not told by which interface a leaving packet came (origin is 0), and
// a packet that the kernel holds as several segments is counted and drawn as one; what it is on the wire
// is told with the sample.
//
// A change of the rate is exact by position: the kernel's count of the packets in the ring, read before
// the new filter is in place, parts the samples of the old rate from those of the new. A packet that
// another CPU handles within that microsecond can fall on either side.

#include "capture/ring_source.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <chrono>
#include <deque>
#include <limits>
#include <map>
#include <vector>

#include "capture/ring_blocks.h"
#include "capture/ring_socket.h"
#include "ipc/timers.h"
#include "log/log.h"

namespace capture {

namespace {

namespace asio = boost::asio;

constexpr std::size_t kRingSize = 128U << 10U;
// The kernel counts in 32 bits. Nothing brings 2^32 packets in this time.
constexpr std::chrono::seconds kCountingPeriod{10};

// A sampled interface.
struct Port {
    Port(asio::io_context& loop, std::size_t ringSize)
        : sampling(ringSize), blocks(sampling.Area(), sampling.TellsSegments()), events(loop)
    {
    }

    // Samples up to the one with this number (from 1) were drawn with the rate.
    struct Epoch {
        std::uint64_t last;
        std::uint32_t rate;
    };

    CountingSocket counting;
    SamplingSocket sampling;
    RingBlocks blocks;
    asio::posix::stream_descriptor events;  // of `sampling`, which keeps the descriptor
    std::uint32_t ifIndex = 0;
    Settings settings;
    std::deque<Epoch> earlier;    // before the settings of now
    std::uint64_t delivered = 0;  // samples that left the ring
    bool removed = false;
};

std::uint64_t InRing(const RingStatistics& statistics) { return statistics.passed - statistics.dropped; }

class RingSource final : public PacketSource {
public:
    RingSource(asio::io_context& loop, ipc::Timers& timers, SampleSink& sink, const SourceOptions& options)
        : m_loop(loop), m_timers(timers), m_sink(sink), m_options(options), m_spare(MakePort())
    {
        AwaitCounting();
    }

    ~RingSource() override
    {
        for (const auto& [ifIndex, port] : m_ports) End(*port);
    }

    [[nodiscard]] std::string Kind() const override { return "packet-socket"; }

    void Add(std::uint32_t ifIndex, const Settings& settings) override
    {
        if (m_ports.contains(ifIndex))
            throw Unavailable(Unavailable::Cause::kOther, "the interface is sampled already");
        std::shared_ptr<Port> port = m_spare ? std::move(m_spare) : MakePort();
        m_spare = nullptr;
        port->ifIndex = ifIndex;
        port->counting.Bind(ifIndex);
        port->sampling.Bind(ifIndex);
        Apply(*port, settings);
        port->events.assign(port->sampling.Get());
        m_ports.emplace(ifIndex, port);
        AwaitBlock(port);
    }

    void Change(std::uint32_t ifIndex, const Settings& settings) override
    {
        const auto port = m_ports.find(ifIndex);
        if (port == m_ports.end())
            throw Unavailable(Unavailable::Cause::kOther, "the interface is not sampled");
        if (port->second->settings == settings) return;
        Apply(*port->second, settings);
    }

    Counts Remove(std::uint32_t ifIndex) override
    {
        const auto found = m_ports.find(ifIndex);
        if (found == m_ports.end()) return {};
        const std::shared_ptr<Port> port = found->second;
        m_ports.erase(found);
        port->sampling.Attach(RejectingFilter());
        port->counting.Attach(RejectingFilter());
        HandOver(*port);
        HandOverUnfinished(*port);
        m_sink.OnDrained();
        End(*port);
        return Count(*port);
    }

    [[nodiscard]] Counts Read(std::uint32_t ifIndex) override
    {
        const auto port = m_ports.find(ifIndex);
        return port == m_ports.end() ? Counts{} : Count(*port->second);
    }

    [[nodiscard]] std::vector<InterfaceCounts> ReadAll() override
    {
        std::vector<InterfaceCounts> all;
        all.reserve(m_ports.size());
        for (const auto& [ifIndex, port] : m_ports) all.push_back({ifIndex, Count(*port)});
        return all;
    }

    void Drain() override
    {
        std::vector<std::shared_ptr<Port>> ports;
        ports.reserve(m_ports.size());
        for (const auto& [ifIndex, port] : m_ports) ports.push_back(port);
        for (const auto& port : ports) HandOver(*port);
        m_sink.OnDrained();
    }

private:
    [[nodiscard]] std::shared_ptr<Port> MakePort()
    {
        return std::make_shared<Port>(m_loop, m_options.bufferSize != 0 ? m_options.bufferSize : kRingSize);
    }

    // Both filters, at once for each. The samples so far keep their rate.
    void Apply(Port& port, const Settings& settings)
    {
        const bool ignored = [&] {
            const bool counting = port.counting.IgnoreOutgoing(!settings.egress);
            return port.sampling.IgnoreOutgoing(!settings.egress) && counting;
        }();
        const RingFilter counting = CountingFilter(settings, m_options.ownMark, ignored);
        const RingFilter drawing = DrawingFilter(settings, m_options.ownMark, ignored);
        const std::uint64_t before = InRing(port.sampling.Statistics());
        port.counting.Attach(counting);
        port.sampling.Attach(drawing);
        const std::uint64_t known = port.earlier.empty() ? port.delivered : port.earlier.back().last;
        if (before > known && settings.rate != port.settings.rate)
            port.earlier.push_back({before, port.settings.rate});
        port.settings = settings;
    }

    void AwaitBlock(const std::shared_ptr<Port>& port)
    {
        port->events.async_wait(asio::posix::stream_descriptor::wait_read,
                                [this, port](const boost::system::error_code& error) {
                                    if (error || port->removed) return;
                                    // Read, so that an interface that went down does not wake for ever.
                                    port->sampling.TakeError();
                                    HandOver(*port);
                                    m_sink.OnDrained();
                                    if (!port->removed) AwaitBlock(port);
                                });
    }

    // The blocks that the kernel has closed, but not more than the ring has: others want to be read too.
    void HandOver(Port& port)
    {
        for (std::size_t block = port.sampling.Area().blocks; block > 0 && port.blocks.Waits(); --block) {
            m_samples.clear();
            port.blocks.Take(m_samples);
            Emit(port);
            port.blocks.Release();
        }
    }

    // Nothing passes any more: what is in the block that the kernel has not closed is all there is.
    void HandOverUnfinished(Port& port)
    {
        const std::uint64_t inRing = InRing(port.sampling.Statistics());
        while (port.blocks.Waits()) HandOver(port);
        if (inRing <= port.delivered) return;
        m_samples.clear();
        port.blocks.TakeUnfinished(m_samples, inRing - port.delivered);
        Emit(port);
    }

    void Emit(Port& port)
    {
        if (m_samples.empty()) return;
        const Counts counts = Count(port);
        for (Sample& sample : m_samples) {
            ++port.delivered;
            while (!port.earlier.empty() && port.earlier.front().last < port.delivered)
                port.earlier.pop_front();
            sample.ifIndex = port.ifIndex;
            sample.rate = port.earlier.empty() ? port.settings.rate : port.earlier.front().rate;
            sample.pool = counts.pool;
            sample.drops = counts.drops;
        }
        m_sink.OnSamples(m_samples);
    }

    [[nodiscard]] static Counts Count(Port& port)
    {
        const std::uint64_t drops = port.sampling.Statistics().dropped;
        return {port.counting.Statistics().passed, drops};
    }

    static void End(Port& port)
    {
        port.removed = true;
        if (port.events.is_open()) port.events.release();
    }

    void AwaitCounting()
    {
        m_counting = m_timers.After(kCountingPeriod, [this] {
            for (const auto& [ifIndex, port] : m_ports) static_cast<void>(Count(*port));
            AwaitCounting();
        });
    }

    asio::io_context& m_loop;
    ipc::Timers& m_timers;
    SampleSink& m_sink;
    SourceOptions m_options;
    std::shared_ptr<Port> m_spare;
    std::map<std::uint32_t, std::shared_ptr<Port>> m_ports;
    std::vector<Sample> m_samples;
    std::shared_ptr<void> m_counting;
};

}  // namespace

std::unique_ptr<PacketSource> MakeRingSource(asio::io_context& loop, ipc::Timers& timers, SampleSink& sink,
                                             const SourceOptions& options)
{
    return std::make_unique<RingSource>(loop, timers, sink, options);
}

}  // namespace capture
