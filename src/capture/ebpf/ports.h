// SPDX-License-Identifier: Apache-2.0
// The interfaces of the eBPF source as user space knows them, and what turns a record of the ring into a
// sample: an interface's counts are per CPU and direction in the kernel, and become one sum here. No system
// calls. Used by the eBPF source.

#ifndef CAPTURE_EBPF_PORTS_H
#define CAPTURE_EBPF_PORTS_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "capture/bpf/records.h"
#include "capture/packet_source.h"

namespace capture {

class EbpfPorts {
public:
    struct Port {
        std::uint32_t ifIndex = 0;
        std::uint32_t slot = 0;
        std::uint32_t incarnation = 0;  // 0: the slot is free
        Settings settings;
        // The directions that have counts in the kernel; those attached are in the settings.
        bool ingressMade = false;
        bool egressMade = false;
        // Of each CPU and direction, as far as known, and whether it sampled nothing in the last look.
        struct Row {
            Counts counts;
            bool quiet = false;
        };
        std::vector<Row> rows;
        Counts sum;              // of all rows
        std::uint64_t look = 0;  // the last one with a record of it
    };

    /// The interface must not have been added. The reference is valid until the next Add.
    Port& Add(std::uint32_t ifIndex);
    /// Null if it has not been added.
    [[nodiscard]] Port* Find(std::uint32_t ifIndex);
    /// Does nothing if it has not been added.
    void Remove(std::uint32_t ifIndex);
    [[nodiscard]] std::size_t Size() const { return m_byIndex.size(); }
    /// Free ones included: their incarnation is 0.
    [[nodiscard]] const std::vector<Port>& Slots() const { return m_slots; }

    static std::size_t RowOf(std::size_t cpu, bool egress) { return cpu * 2 + (egress ? 1 : 0); }

    /// Takes over what a CPU has counted at the interface, from its records or, if it samples none, as read
    /// in the kernel. Lower counts than those known are ignored.
    static void Advance(Port& port, std::size_t row, const Counts& counts)
    {
        Counts& known = port.rows[row].counts;
        if (counts.pool > known.pool) port.sum.pool += counts.pool - std::exchange(known.pool, counts.pool);
        if (counts.drops > known.drops)
            port.sum.drops += counts.drops - std::exchange(known.drops, counts.drops);
    }

    /// Null if it has been removed.
    [[nodiscard]] Port* Of(const Record& record)
    {
        const std::uint32_t slot = record.slot & ~std::uint32_t{kEgressBit};
        if (slot >= m_slots.size() || m_slots[slot].incarnation != record.incarnation) return nullptr;
        return &m_slots[slot];
    }

    static std::size_t RowOf(const Record& record)
    {
        return RowOf(record.cpu, (record.slot & std::uint32_t{kEgressBit}) != 0);
    }

    /// Fills the sample from a record of the port, whose bytes its header points to.
    static void Take(Port& port, const Record& record, Sample& sample)
    {
        const std::size_t row = RowOf(record);
        if (row >= port.rows.size()) port.rows.resize(row + 1);
        port.rows[row].quiet = false;
        Advance(port, row, {.pool = record.pool, .drops = record.drops});

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
        sample.pool = port.sum.pool;
        sample.drops = port.sum.drops;
    }

private:
    std::vector<Port> m_slots;
    std::vector<std::uint32_t> m_free;
    std::unordered_map<std::uint32_t, std::uint32_t> m_byIndex;
    std::uint32_t m_incarnation = 0;
};

}  // namespace capture

#endif
