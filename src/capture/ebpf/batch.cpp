// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/batch.h"

#include <algorithm>
#include <utility>

namespace capture {

std::span<const Sample> EbpfBatch::Next()
{
    ++m_batch;
    const std::size_t asked = m_asked.size();
    const std::size_t count = Take();
    if (m_asked.size() > asked) {
        const unsigned long end = m_ring.Produced();  // after all counts are read
        for (std::size_t i = asked; i < m_asked.size(); ++i) m_asked[i].end = end;
    }
    const std::size_t answered = Answered();
    // A CPU without a record in this batch has sampled nothing that is still to come.
    Tell(answered, true);
    for (std::size_t i = 0; i < count; ++i) {
        auto& [port, row, counts] = m_taken[i];
        EbpfPorts::Advance(*port, port->rows[row], counts);
        m_samples[i].pool = port->sum.pool;
        m_samples[i].drops = port->sum.drops;
    }
    Tell(answered, false);
    m_asked.erase(m_asked.begin(), m_asked.begin() + static_cast<std::ptrdiff_t>(answered));
    return {m_samples.data(), count};
}

std::size_t EbpfBatch::Take()
{
    std::size_t count = 0;
    while (count < kBatch) {
        const auto* record = static_cast<const Record*>(m_ring.Next());
        if (record == nullptr) break;
        Port* port = m_ports.Of(*record);
        if (port == nullptr) continue;
        if (std::exchange(port->look, m_look) != m_look && !port->asked) Ask(*port);
        const std::size_t row = EbpfPorts::RowOf(*record);
        if (row >= port->rows.size()) port->rows.resize(row + 1);
        port->rows[row].batch = m_batch;
        m_taken[count] = {port, row, {.pool = record->pool, .drops = record->drops}};
        Describe(*port, *record, m_samples[count++]);
    }
    return count;
}

void EbpfBatch::ReadLast(EbpfPorts::Port& port) { Read(port, &Port::Row::last); }

Counts EbpfBatch::Last(EbpfPorts::Port& port)
{
    for (auto& row : port.rows) EbpfPorts::Advance(port, row, row.last);
    return port.sum;
}

void EbpfBatch::Ask(Port& port)
{
    Read(port, &Port::Row::read);
    port.asked = true;
    m_asked.push_back({port.slot, port.incarnation, 0});
}

void EbpfBatch::Read(Port& port, Counts Port::Row::*to)
{
    for (const bool egress : {false, true}) {
        if (egress ? !port.egressMade : !port.ingressMade) continue;
        const auto counts = m_program.ReadCpus(KeyOf(port.ifIndex, egress), port.incarnation);
        port.rows.resize(std::max(port.rows.size(), counts.size() * 2));
        for (std::size_t cpu = 0; cpu < counts.size(); ++cpu)
            port.rows[EbpfPorts::RowOf(cpu, egress)].*to = counts[cpu];
    }
}

// How many of the first ones have nothing left in the ring that their counts include.
std::size_t EbpfBatch::Answered() const
{
    const auto waits = [this](const Asked& asked) { return m_ring.IsBefore(asked.end); };
    return static_cast<std::size_t>(std::ranges::find_if(m_asked, waits) - m_asked.begin());
}

// Takes over the counts that were read: of the CPUs without a record in this batch, or of the others.
void EbpfBatch::Tell(std::size_t answered, bool untouched)
{
    for (std::size_t i = 0; i < answered; ++i) {
        Port* port = m_ports.At(m_asked[i].slot, m_asked[i].incarnation);
        if (port == nullptr) continue;
        for (auto& row : port->rows)
            if ((row.batch != m_batch) == untouched) EbpfPorts::Advance(*port, row, row.read);
        if (!untouched) port->asked = false;
    }
}

// All but the counts.
void EbpfBatch::Describe(const Port& port, const Record& record, Sample& sample)
{
    sample.ifIndex = port.ifIndex;
    sample.egress = (record.slot & std::uint32_t{kEgressBit}) != 0;
    sample.origin = record.origin;
    sample.rate = record.rate;
    sample.count = record.hits;
    sample.segments = record.segments;
    sample.segmentSize = record.segmentSize;
    sample.length = record.length;
    sample.etherType = record.etherType;
    sample.tagProtocol = record.tagProtocol;
    sample.tagControl = record.tagControl;
    sample.header = {reinterpret_cast<const std::byte*>(&record + 1), record.captured};
}

}  // namespace capture
