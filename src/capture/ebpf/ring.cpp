// SPDX-License-Identifier: Apache-2.0
// Maps the ring and keeps its positions. The data are mapped once, and only where something lies, to save
// memory: the one record per round that is in two pieces is copied instead.

#include "capture/ebpf/ring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "capture/packet_source.h"

namespace capture {

BpfRingBuffer::BpfRingBuffer(int file, std::size_t size)
    : m_file(file),
      m_size(size),
      m_page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
      m_slice(std::min(kSlice, size)),
      m_mapped(size / m_slice)
{
    void* consumer = ::mmap(nullptr, m_page, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    void* producer = ::mmap(nullptr, m_page, PROT_READ, MAP_SHARED, file, static_cast<off_t>(m_page));
    void* data = ::mmap(nullptr, m_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (consumer == MAP_FAILED || producer == MAP_FAILED || data == MAP_FAILED) {
        const int error = errno;
        for (const auto& [at, length] : {std::pair(consumer, m_page), {producer, m_page}, {data, m_size}})
            if (at != MAP_FAILED) ::munmap(at, length);
        throw Unavailable(Unavailable::Cause::kOther,
                          fmt::format("the ring of records can't be mapped: {}", std::strerror(error)));
    }
    m_consumer = static_cast<unsigned long*>(consumer);
    m_producer = static_cast<const unsigned long*>(producer);
    m_data = static_cast<std::byte*>(data);
    m_position = m_released = m_end = __atomic_load_n(m_consumer, __ATOMIC_ACQUIRE);
}

BpfRingBuffer::~BpfRingBuffer()
{
    ::munmap(m_consumer, m_page);
    ::munmap(const_cast<unsigned long*>(m_producer), m_page);
    ::munmap(m_data, m_size);
}

bool BpfRingBuffer::Begin()
{
    m_end = m_position;
    const unsigned long end = Produced();
    if (end == m_position) return false;
    if (!MapUntil(end)) return false;
    m_end = end;
    return true;
}

bool BpfRingBuffer::MapUntil(unsigned long end)
{
    for (unsigned long at = m_position / m_slice; at <= (end - 1) / m_slice; ++at) {
        const std::size_t slice = at % m_mapped.size();
        if (m_mapped[slice]) continue;
        const std::size_t from = slice * m_slice;
        if (::mmap(m_data + from, m_slice, PROT_READ, MAP_SHARED | MAP_FIXED, m_file,
                   static_cast<off_t>(2 * m_page + from)) == MAP_FAILED)
            return false;
        m_mapped[slice] = true;
        ++m_mappedSlices;
    }
    return true;
}

/// The addresses stay reserved; if that fails, what is mapped stays.
void BpfRingBuffer::Shrink()
{
    if (m_mappedSlices <= kFewSlices) return;
    if (::mmap(m_data, m_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0) ==
        MAP_FAILED)
        return;
    m_mapped.assign(m_mapped.size(), false);
    m_mappedSlices = 0;
}

bool BpfRingBuffer::Release()
{
    m_straightUsed = false;
    if (m_released == m_position) return false;
    m_released = m_position;
    __atomic_store_n(m_consumer, m_released, __ATOMIC_RELEASE);
    return true;
}

const std::byte* BpfRingBuffer::Straighten(std::size_t from, std::size_t length)
{
    if (m_straightUsed) return nullptr;
    m_straightUsed = true;
    m_straight.resize(std::max(m_straight.size(), length));
    from &= m_size - 1;
    const std::size_t first = std::min(length, m_size - from);
    std::memcpy(m_straight.data(), m_data + from, first);
    std::memcpy(m_straight.data() + first, m_data, length - first);
    return m_straight.data();
}

}  // namespace capture
