// The interfaces of the eBPF source as user space knows them, and what turns a record of the ring into a
// sample: an interface's counts are per CPU and direction in the kernel, and become one sum here. No system
// calls. Used by the eBPF source.

#ifndef CAPTURE_EBPF_PORTS_H
#define CAPTURE_EBPF_PORTS_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>
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
        std::vector<Counts> last;  // of each CPU and direction, as of its last record
        Counts sum;                // of these
    };

    /// The interface must not be there. The reference is valid until the next Add.
    Port& Add(std::uint32_t ifIndex);
    /// Null where it is not there.
    [[nodiscard]] Port* Find(std::uint32_t ifIndex);
    void Remove(std::uint32_t ifIndex);
    [[nodiscard]] std::size_t Size() const { return m_byIndex.size(); }
    [[nodiscard]] const std::vector<Port>& Slots() const { return m_slots; }

    /// False, and no sample, for a record of an interface that has been removed.
    bool Take(const Record& record, Sample& sample)
    {
        const std::uint32_t slot = record.slot & ~std::uint32_t{kEgressBit};
        const bool egress = slot != record.slot;
        if (slot >= m_slots.size()) return false;
        Port& port = m_slots[slot];
        if (port.incarnation != record.incarnation) return false;
        const std::size_t row = record.cpu * std::size_t{2} + (egress ? 1 : 0);
        if (row >= port.last.size()) port.last.resize(row + 1);
        Counts& last = port.last[row];
        port.sum.pool += record.pool - last.pool;
        port.sum.drops += record.drops - last.drops;
        last = {.pool = record.pool, .drops = record.drops};

        sample.ifIndex = port.ifIndex;
        sample.egress = egress;
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
        return true;
    }

private:
    std::vector<Port> m_slots;
    std::vector<std::uint32_t> m_free;
    std::unordered_map<std::uint32_t, std::uint32_t> m_byIndex;
    std::uint32_t m_incarnation = 0;
};

}  // namespace capture

#endif
