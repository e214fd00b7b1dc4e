// SPDX-License-Identifier: Apache-2.0
// The interfaces of the eBPF source as user space knows them, in slots that are used again. An interface's
// counts are per CPU and direction in the kernel, and become one sum here. No system calls. Used by the eBPF
// source.

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

/// A port's key in the program: an interface and a direction.
[[nodiscard]] inline std::uint32_t KeyOf(std::uint32_t ifIndex, bool egress)
{
    return ifIndex | (egress ? static_cast<std::uint32_t>(kEgressBit) : 0);
}

class EbpfPorts {
public:
    struct Port {
        std::uint32_t ifIndex = 0;
        std::uint32_t slot = 0;
        std::uint32_t incarnation = 0;  // 0: the slot is free
        Settings settings;              // in effect, or asked for from the kernel
        Settings wanted;                // as they were given last
        // The directions that have counts in the kernel.
        bool ingressMade = false;
        bool egressMade = false;
        /// Of one CPU and direction: what the samples have told, what was read in the kernel when the counts
        /// were asked for last, and the last batch with a record of it.
        struct Row {
            Counts told;
            Counts read;
            Counts last;  // as read when the sampling ended
            std::uint64_t batch = 0;
        };
        std::vector<Row> rows;
        Counts sum;              // told, of all rows
        std::uint64_t look = 0;  // the last one with a record of it
        bool asked = false;      // what was read is still to be told
    };

    /// The interface must not have been added. The reference is valid until the next Add.
    Port& Add(std::uint32_t ifIndex)
    {
        std::uint32_t slot = 0;
        if (m_free.empty()) {
            slot = static_cast<std::uint32_t>(m_slots.size());
            m_slots.emplace_back();
        } else {
            slot = m_free.back();
            m_free.pop_back();
        }
        if (++m_incarnation == 0) ++m_incarnation;
        m_byIndex[ifIndex] = slot;
        Port& port = m_slots[slot];
        port = Port{};
        port.ifIndex = ifIndex;
        port.slot = slot;
        port.incarnation = m_incarnation;
        return port;
    }

    /// Null if it has not been added.
    [[nodiscard]] const Port* Find(std::uint32_t ifIndex) const
    {
        const auto found = m_byIndex.find(ifIndex);
        return found == m_byIndex.end() ? nullptr : &m_slots[found->second];
    }
    [[nodiscard]] Port* Find(std::uint32_t ifIndex)
    {
        return const_cast<Port*>(std::as_const(*this).Find(ifIndex));
    }

    /// Does nothing if it has not been added.
    void Remove(std::uint32_t ifIndex)
    {
        const auto found = m_byIndex.find(ifIndex);
        if (found == m_byIndex.end()) return;
        m_slots[found->second] = Port{};
        m_free.push_back(found->second);
        m_byIndex.erase(found);
    }

    [[nodiscard]] std::size_t Size() const { return m_byIndex.size(); }
    /// Free ones included: their incarnation is 0.
    [[nodiscard]] const std::vector<Port>& Slots() const { return m_slots; }

    static std::size_t RowOf(std::size_t cpu, bool egress) { return cpu * 2 + (egress ? 1 : 0); }

    /// Takes over what a CPU has counted at the interface. Lower counts than those told are ignored.
    static void Advance(Port& port, Port::Row& row, const Counts& counts)
    {
        Counts& told = row.told;
        if (counts.pool > told.pool) port.sum.pool += counts.pool - std::exchange(told.pool, counts.pool);
        if (counts.drops > told.drops)
            port.sum.drops += counts.drops - std::exchange(told.drops, counts.drops);
    }

    /// Null if it has been removed.
    [[nodiscard]] Port* Of(const Record& record)
    {
        return At(record.slot & ~std::uint32_t{kEgressBit}, record.incarnation);
    }
    [[nodiscard]] Port* At(std::uint32_t slot, std::uint32_t incarnation)
    {
        if (slot >= m_slots.size() || m_slots[slot].incarnation != incarnation) return nullptr;
        return &m_slots[slot];
    }

    static std::size_t RowOf(const Record& record)
    {
        return RowOf(record.cpu, (record.slot & std::uint32_t{kEgressBit}) != 0);
    }

private:
    std::vector<Port> m_slots;
    std::vector<std::uint32_t> m_free;
    std::unordered_map<std::uint32_t, std::uint32_t> m_byIndex;
    std::uint32_t m_incarnation = 0;
};

}  // namespace capture

#endif
