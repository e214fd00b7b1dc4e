// SPDX-License-Identifier: Apache-2.0
// Sampling with packet sockets: which interface is sampled how, what was counted, and when blocks are read.
// The rest of it: filter.h (what is sampled), socket.h and pair.h (the sockets), blocks.h (the memory),
// port.h (an interface), waker.h and maker.h (when, and how a pair begins and ends).
//
// What this source can't do: it does not learn by which interface a leaving packet entered, and it counts and
// samples a packet that the kernel holds as several segments as one; the sample says what it is on the wire.
//
// A change of rate is exact: a pair of sockets keeps its rate, and another pair follows it from one packet to
// the next. All that is in a ring was sampled with one rate. If a pair can't follow so (pair.h), as with
// other directions, some microseconds pass in which packets are neither counted nor sampled. A change that
// comes while the kernel still closes the pair before takes effect after that; only the last of several does.
//
// The first block that waits wakes the process. From then on a timer looks, so often that a stream of packets
// would fill two thirds of a ring at most meanwhile; when looks find nothing for some time, the ring wakes
// again.

#include <net/if.h>

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <chrono>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/timers.h"
#include "capture/ebpf/grace.h"
#include "capture/packet_socket/maker.h"
#include "capture/packet_socket/pair.h"
#include "capture/packet_socket/port.h"
#include "capture/packet_socket/waker.h"
#include "capture/packet_source.h"
#include "log/log.h"

namespace capture {

namespace {

namespace asio = boost::asio;
using std::chrono::milliseconds;
using Port = RingPort;

// The kernel counts in 32 bits. No interface carries 2^32 packets in this time.
constexpr std::chrono::seconds kCountingPeriod{10};

// Looks that find nothing mean silence only if a block of some packets has had the time to be handed over.
constexpr milliseconds kSilence{70};

// How often to look whether a pair is closed that a change waits for. The kernel takes some 10 ms.
constexpr milliseconds kLatePause{5};

class RingSource final : public PacketSource {
public:
    RingSource(asio::io_context& loop, base::Timers& timers, SampleSink& sink, const SourceOptions& options)
        : m_timers(timers),
          m_sink(sink),
          m_options(options),
          m_grace(timers, options.expediteRcu),
          m_alarm(timers.MakeAlarm([this] { OnTime(); })),
          m_lateAlarm(timers.MakeAlarm([this] { OnLate(); })),
          m_maker(loop, m_grace, m_closer),
          m_waker(loop, [this](std::span<const std::uint32_t> keys) { OnWake(keys); }),
          m_spare(std::make_shared<PacketSocketPair>(SizeFor(kCommonRate)))
    {
        m_spare->MakeRing();  // or there are none here
        AwaitCounting();
    }

    ~RingSource() override
    {
        for (auto& [ifIndex, port] : m_ports) {
            if (!port.pair) continue;
            m_grace.Step();
            m_waker.Remove(port.pair->Get());
            Discard(std::exchange(port.pair, nullptr));
        }
        Discard(std::exchange(m_spare, nullptr));
    }

    [[nodiscard]] std::string Kind() const override { return "packet-socket"; }

    void Add(std::uint32_t ifIndex, const Settings& settings) override
    {
        if (m_ports.contains(ifIndex)) return Change(ifIndex, settings);
        std::array<char, IF_NAMESIZE> name{};
        if (::if_indextoname(ifIndex, name.data()) == nullptr && errno == ENXIO)
            throw Unavailable(Unavailable::Cause::kOther,
                              "no interface has the index " + std::to_string(ifIndex));
        Port& port = m_ports[ifIndex];
        port.ifIndex = ifIndex;
        port.wanted = settings;
        try {
            Make(port);
        } catch (...) {
            m_ports.erase(ifIndex);
            throw;
        }
    }

    // If no other pair can be made, the present one continues.
    void Change(std::uint32_t ifIndex, const Settings& settings) override
    {
        const auto found = m_ports.find(ifIndex);
        if (found == m_ports.end())
            throw Unavailable(Unavailable::Cause::kOther, "the interface is not sampled");
        Port& port = found->second;
        port.wanted = settings;
        if (port.pair)
            Adapt(port);
        else if (!port.making)
            Make(port);
    }

    [[nodiscard]] bool Sampled(std::uint32_t ifIndex) const override
    {
        const auto found = m_ports.find(ifIndex);
        return found != m_ports.end() && found->second.pair && !m_late.contains(ifIndex);
    }

    Counts Remove(std::uint32_t ifIndex) override
    {
        const auto found = m_ports.find(ifIndex);
        if (found == m_ports.end()) return {};
        Port& port = found->second;
        if (port.pair) {
            try {
                port.pair->Close();
            } catch (const Unavailable& reason) {
                slog::Notice("packets come until the socket is closed: {}", reason.what());
            }
            EndPair(port);
        }
        std::erase(m_looking, &port);
        m_late.erase(ifIndex);
        const Counts last = port.before;
        m_ports.erase(found);
        m_sink.OnDrained();
        return last;
    }

    [[nodiscard]] Counts Read(std::uint32_t ifIndex) override
    {
        const auto port = m_ports.find(ifIndex);
        return port == m_ports.end() ? Counts{} : port->second.Count();
    }

    [[nodiscard]] std::vector<InterfaceCounts> ReadAll() override
    {
        std::vector<InterfaceCounts> all;
        all.reserve(m_ports.size());
        for (const auto& [ifIndex, port] : m_ports) all.push_back({ifIndex, port.Count()});
        return all;
    }

    void Drain() override
    {
        for (auto& [ifIndex, port] : m_ports) port.HandOver(m_sink, m_samples);
        m_sink.OnDrained();
    }

private:
    // The pair that is made first of all, which shows that packet sockets can be had, is for any rate from
    // this one on.
    static constexpr std::uint32_t kCommonRate = 1000;

    [[nodiscard]] std::size_t SizeFor(std::uint32_t rate) const
    {
        return m_options.bufferSize != 0 ? m_options.bufferSize : RingSizeFor(rate);
    }

    // ---- the first pair of an interface ----

    // Begins to make it beside the loop.
    void Make(Port& port)
    {
        const std::size_t bytes = SizeFor(port.wanted.rate);
        auto pair = bytes == SizeFor(kCommonRate) ? std::exchange(m_spare, nullptr) : nullptr;
        port.making = m_maker.Prepare(
            {std::move(pair), bytes, port.ifIndex, port.wanted, m_options.ownMark},
            [this, &port](std::shared_ptr<PacketSocketPair> made, const Unavailable* refusal) {
                OnMade(port, std::move(made), refusal);
            });
    }

    void OnMade(Port& port, std::shared_ptr<PacketSocketPair> pair, const Unavailable* refusal)
    {
        const std::shared_ptr<void> making = std::exchange(port.making, nullptr);
        try {
            if (refusal != nullptr) throw Unavailable(*refusal);
            Use(port, pair);
            Adapt(port);  // to what was asked for meanwhile
        } catch (const Unavailable& reason) {
            if (!port.pair) Discard(std::move(pair));
            m_sink.OnRefused(port.ifIndex, reason);
        }
    }

    // Samples with the pair, the port's first.
    void Use(Port& port, const std::shared_ptr<PacketSocketPair>& pair)
    {
        m_waker.Add(pair->Get(), port.ifIndex);
        try {
            pair->Open();
        } catch (const Unavailable&) {
            m_waker.Remove(pair->Get());
            throw;
        }
        port.pair = pair;
        port.delivered = 0;
        port.pause = RingPort::PauseFor(*pair);
    }

    // ---- changes ----

    void Adapt(Port& port)
    {
        m_late.erase(port.ifIndex);
        Settings now = port.pair->Current();
        if (now == port.wanted) return;
        now.headerSize = port.wanted.headerSize;
        if (now == port.wanted) return port.pair->SetHeaderSize(now.headerSize);
        if (port.pair->SuccessionWith(port.wanted) != PacketSocketPair::Succession::kLater)
            return Follow(port, port.wanted);
        if (m_late.empty()) m_lateAlarm->Set(kLatePause);
        m_late.insert(port.ifIndex);
    }

    void OnLate()
    {
        for (const std::uint32_t ifIndex : std::exchange(m_late, {})) {
            const auto found = m_ports.find(ifIndex);
            if (found == m_ports.end()) continue;
            try {
                Adapt(found->second);
            } catch (const Unavailable& reason) {
                m_sink.OnRefused(ifIndex, reason);
            }
        }
    }

    // The kernel waits when it makes a ring and when it exchanges the program of a group.
    [[nodiscard]] std::shared_ptr<PacketSocketPair> MakeNext(const Port& port, const Settings& settings)
    {
        const std::size_t bytes = SizeFor(settings.rate);
        m_grace.Step();
        if (auto follower = port.pair->MakeFollower(port.ifIndex, settings, bytes)) return follower;
        auto pair = std::make_shared<PacketSocketPair>(bytes);
        try {
            pair->Prepare(port.ifIndex, settings, m_options.ownMark);
        } catch (const Unavailable&) {
            Discard(std::move(pair));
            throw;
        }
        return pair;
    }

    // Samples as the settings say from now on, and hands over what the former pair has sampled.
    void Follow(Port& port, const Settings& settings)
    {
        std::shared_ptr<PacketSocketPair> pair = MakeNext(port, settings);
        const bool another = !pair->Follows();
        try {
            m_waker.Add(pair->Get(), port.ifIndex);
            if (another) port.pair->Close();
            pair->Open();
        } catch (const Unavailable&) {
            m_waker.Remove(pair->Get());
            Discard(std::move(pair));
            if (another) port.pair->Open();
            throw;
        }
        EndPair(port);
        if (pair->Follows()) pair->TakeOverCounting();
        port.pair = std::move(pair);
        port.delivered = 0;
        port.pause = RingPort::PauseFor(*port.pair);
        port.looking = false;
        std::erase(m_looking, &port);
        m_sink.OnDrained();
    }

    // The pair that was closed: hands over what it still has, and its counts to the port.
    void EndPair(Port& port)
    {
        port.HandOverLast(m_sink, m_samples);
        m_waker.Remove(port.pair->Get());
        m_grace.Step();
        Discard(std::exchange(port.pair, nullptr));
    }

    void Discard(std::shared_ptr<PacketSocketPair> pair) { m_closer.Close(std::move(pair)); }

    // ---- when to look ----

    void OnWake(std::span<const std::uint32_t> keys)
    {
        const std::size_t before = m_looking.size();
        for (const std::uint32_t ifIndex : keys) {
            const auto found = m_ports.find(ifIndex);
            if (found == m_ports.end() || found->second.looking) continue;
            Port& port = found->second;
            // Clears the error, so that an interface that went down does not wake again and again.
            port.pair->TakeError();
            port.silent = milliseconds(0);
            m_looking.push_back(&port);
            port.looking = true;
        }
        Arm();  // from here on the timer looks
        for (std::size_t woken = before; woken < m_looking.size(); ++woken)
            m_looking[woken]->HandOver(m_sink, m_samples);
        m_sink.OnDrained();
    }

    void OnTime()
    {
        const milliseconds passed = std::exchange(m_pause, milliseconds::max());
        Arm();
        bool any = false;
        for (Port* port : m_looking) port->looking = Look(*port, passed, any);
        std::erase_if(m_looking, [](const Port* port) { return !port->looking; });
        if (m_looking.empty()) {
            m_alarm->Cancel();
            m_pause = milliseconds::max();
        }
        Arm();  // sooner if a ring fills
        if (any) m_sink.OnDrained();
    }

    // False if the ring wakes again.
    bool Look(Port& port, milliseconds passed, bool& any)
    {
        const std::size_t blocks = port.HandOver(m_sink, m_samples);
        if (blocks > 0) {
            any = true;
            port.silent = milliseconds(0);
            return true;
        }
        port.silent += passed;
        if (port.silent < kSilence) return true;
        m_waker.Rearm(port.pair->Get(), port.ifIndex);
        return false;
    }

    // One timer for all, at the pace of the fastest.
    void Arm()
    {
        milliseconds pause = milliseconds::max();
        for (const Port* port : m_looking) pause = std::min(pause, port->pause);
        if (pause >= m_pause) return;
        m_pause = pause;
        m_alarm->Set(pause);
    }

    void AwaitCounting()
    {
        m_counting = m_timers.After(kCountingPeriod, [this] {
            for (const auto& [ifIndex, port] : m_ports) static_cast<void>(port.Count());
            AwaitCounting();
        });
    }

    base::Timers& m_timers;
    SampleSink& m_sink;
    SourceOptions m_options;
    GracePeriods m_grace;
    const std::unique_ptr<base::Alarm> m_alarm;
    const std::unique_ptr<base::Alarm> m_lateAlarm;
    RingCloser m_closer;
    PairMaker m_maker;
    RingWaker m_waker;
    std::shared_ptr<PacketSocketPair> m_spare;
    std::map<std::uint32_t, Port> m_ports;
    std::vector<Port*> m_looking;                // at which the timer looks
    std::set<std::uint32_t> m_late;              // interfaces with a change that is put off
    std::vector<Sample> m_samples;               // of one block
    milliseconds m_pause = milliseconds::max();  // until the timer looks
    std::shared_ptr<void> m_counting;
};

}  // namespace

std::unique_ptr<PacketSource> MakeRingSource(asio::io_context& loop, base::Timers& timers, SampleSink& sink,
                                             const SourceOptions& options)
{
    return std::make_unique<RingSource>(loop, timers, sink, options);
}

}  // namespace capture
