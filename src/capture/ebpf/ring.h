// SPDX-License-Identifier: Apache-2.0
// The reading end of the ring between a program in the kernel and the process: records in order, their
// bytes where the kernel put them. Knows nothing of what is in them. Used instead of libbpf's ring_buffer,
// which maps the ring twice and gives room back record by record.

#ifndef CAPTURE_EBPF_RING_H
#define CAPTURE_EBPF_RING_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <linux/bpf.h>

namespace capture {

class BpfRingBuffer {
public:
    /// `size`: bytes, a power of two, at least a page. The file must outlive it. Throws Unavailable.
    BpfRingBuffer(int file, std::size_t size);
    ~BpfRingBuffer();
    BpfRingBuffer(const BpfRingBuffer&) = delete;
    BpfRingBuffer& operator=(const BpfRingBuffer&) = delete;

    /// Until the next call, Next hands out what is in the ring now. False if the ring is empty, or can't be
    /// mapped for want of memory; a record that is being written counts as one.
    bool Begin();

    /// The next finished record, or null: at the end, before one that is being written, or when Release
    /// must come first. Valid until Release.
    const void* Next()
    {
        while (m_position < m_end) {
            const std::size_t at = m_position & (m_size - 1);
            const std::uint32_t head =
                __atomic_load_n(reinterpret_cast<const std::uint32_t*>(m_data + at), __ATOMIC_ACQUIRE);
            if ((head & BPF_RINGBUF_BUSY_BIT) != 0) return nullptr;
            const std::size_t length = head & ~(BPF_RINGBUF_BUSY_BIT | BPF_RINGBUF_DISCARD_BIT);
            const std::size_t whole = (length + BPF_RINGBUF_HDR_SZ + 7) & ~std::size_t{7};
            const bool discarded = (head & BPF_RINGBUF_DISCARD_BIT) != 0;
            const std::byte* record = m_data + at + BPF_RINGBUF_HDR_SZ;
            if (!discarded && at + whole > m_size) {
                record = Straighten(at + BPF_RINGBUF_HDR_SZ, length);
                if (record == nullptr) return nullptr;
            } else {
                __builtin_prefetch(record + 4 * whole);
                __builtin_prefetch(record + 4 * whole + 64);
            }
            m_position += whole;
            if (!discarded) return record;
        }
        return nullptr;
    }

    /// Hands over what is in the ring now, no more, so that a flood can't hold the loop: calls `readSome`,
    /// which reads records by Next, until it has read all. Returns the bytes that were in the ring; 1 if
    /// there is only a record that is being written.
    template <typename ReadSome>
    std::size_t HandOver(ReadSome readSome)
    {
        if (!Begin()) return 0;
        const unsigned long begin = m_position;
        do readSome();
        while (Release());
        return std::max<std::size_t>(m_position - begin, 1);
    }

    /// Where in the stream of all records the next one begins that Next hands out, and where those end that
    /// have a place in the ring now.
    [[nodiscard]] unsigned long Position() const { return m_position; }
    [[nodiscard]] bool IsBefore(unsigned long end) const { return static_cast<long>(end - m_position) > 0; }
    [[nodiscard]] unsigned long Produced() const { return __atomic_load_n(m_producer, __ATOMIC_ACQUIRE); }

    /// Gives the room of what was read back to the program. False if nothing was read since the last call.
    bool Release();

    /// To be called where little comes, when all that was handed over has been released: what is mapped goes,
    /// unless it is little. Where much comes it stays, for each page has to be mapped anew by its first
    /// access.
    void Shrink();

    [[nodiscard]] int File() const { return m_file; }
    /// Bytes of the data that are mapped now.
    [[nodiscard]] std::size_t Mapped() const { return m_mappedSlices * m_slice; }

private:
    // What is mapped counts as the process's memory, so it is mapped where something lies, a slice at a time.
    static constexpr std::size_t kSlice = std::size_t{64} * 1024;
    static constexpr std::size_t kFewSlices = 4;

    const std::byte* Straighten(std::size_t from, std::size_t length);
    [[nodiscard]] bool MapUntil(unsigned long end);

    int m_file;
    std::size_t m_size;
    std::size_t m_page;
    std::size_t m_slice;
    unsigned long* m_consumer = nullptr;        // a page
    const unsigned long* m_producer = nullptr;  // a page
    std::byte* m_data = nullptr;                // reserved addresses for all of it
    std::vector<bool> m_mapped;                 // by slice
    std::size_t m_mappedSlices = 0;
    unsigned long m_position = 0;
    unsigned long m_end = 0;
    unsigned long m_released = 0;
    std::vector<std::byte> m_straight;  // the one record of a batch that wraps around the end of the ring
    bool m_straightUsed = false;
};

}  // namespace capture

#endif
