// SPDX-License-Identifier: Apache-2.0
// The source of drops: the program told what is wanted, and its ring drained in batches. The ring is its own,
// and small: a storm of drops takes no room from the sampled packets.

#include <utility>

#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "capture/drop_source.h"
#include "capture/drops/batch.h"
#include "capture/drops/program.h"
#include "capture/drops/reasons.h"
#include "capture/ebpf/ring.h"
#include "capture/ebpf/waker.h"

namespace capture {
namespace {

class KernelDropSource final : public DropSource {
public:
    KernelDropSource(boost::asio::io_context& loop, base::Timers& timers, DropSink& sink,
                     const DropOptions& options)
        : m_sink(sink),
          m_reasons(options.kernelTypes),
          m_program(options, m_reasons),
          m_ring(m_program.RingFile(), m_program.RingSize()),
          m_batch(m_program, m_reasons, m_ring),
          m_waker(loop, timers, m_ring, m_program.Wake(), [this] { return Look(); })
    {
    }

    void Change(const DropSettings& settings) override { m_program.Change(settings); }

    void Add(std::uint32_t ifIndex) override { m_program.Add(ifIndex); }

    void Remove(std::uint32_t ifIndex) override
    {
        Drain();
        m_program.Remove(ifIndex);
    }

    [[nodiscard]] std::vector<InterfaceDrops> ReadAll() override { return m_program.ReadAll(); }

    [[nodiscard]] std::optional<InterfaceDrops> Read(std::uint32_t ifIndex) override
    {
        return m_program.Read(ifIndex);
    }

    [[nodiscard]] UncountedDrops ReadUncounted() override { return m_program.ReadUncounted(); }

    [[nodiscard]] std::string_view NameOf(std::uint32_t reason) override { return m_reasons.NameOf(reason); }

    void Drain() override
    {
        if (const std::size_t found = HandOver(); found != 0) m_waker.Continue(found);
        m_sink.OnDrained();
    }

private:
    // The waker's look: tells the sink only if there was something.
    std::size_t Look()
    {
        const std::size_t found = HandOver();
        if (found != 0) m_sink.OnDrained();
        return found;
    }

    std::size_t HandOver()
    {
        m_program.Wake().pressing = 0;
        m_batch.BeginLook();
        return m_ring.HandOver([this] {
            const std::span<const Drop> drops = m_batch.Next();
            if (!drops.empty()) m_sink.OnDrops(drops);
        });
    }

    DropSink& m_sink;
    DropReasons m_reasons;
    DropProgram m_program;
    BpfRingBuffer m_ring;
    DropBatch m_batch;
    EbpfWaker m_waker;
};

}  // namespace

std::unique_ptr<DropSource> MakeDropSource(boost::asio::io_context& loop, base::Timers& timers,
                                           DropSink& sink, const DropOptions& options)
{
    return std::make_unique<KernelDropSource>(loop, timers, sink, options);
}

}  // namespace capture
