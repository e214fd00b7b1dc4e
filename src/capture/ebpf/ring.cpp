// SPDX-License-Identifier: Apache-2.0
// Maps the ring and keeps its positions. The data are mapped once, to save memory: the one record per round
// that is in two pieces is copied instead.

#include "capture/ebpf/ring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "capture/packet_source.h"

namespace capture {

BpfRingBuffer::BpfRingBuffer(int file, std::size_t size)
    : m_size(size), m_page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)))
{
    void* consumer = ::mmap(nullptr, m_page, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    void* producer = consumer == MAP_FAILED ? MAP_FAILED
                                            : ::mmap(nullptr, m_page + m_size, PROT_READ, MAP_SHARED, file,
                                                     static_cast<off_t>(m_page));
    if (producer == MAP_FAILED) {
        const int error = errno;
        if (consumer != MAP_FAILED) ::munmap(consumer, m_page);
        throw Unavailable(Unavailable::Cause::kOther,
                          fmt::format("the ring of samples can't be mapped: {}", std::strerror(error)));
    }
    m_consumer = static_cast<unsigned long*>(consumer);
    m_producer = static_cast<const unsigned long*>(producer);
    m_data = static_cast<const std::byte*>(producer) + m_page;
    m_position = m_released = m_end = __atomic_load_n(m_consumer, __ATOMIC_ACQUIRE);
}

BpfRingBuffer::~BpfRingBuffer()
{
    ::munmap(m_consumer, m_page);
    ::munmap(const_cast<unsigned long*>(m_producer), m_page + m_size);
}

bool BpfRingBuffer::Begin()
{
    m_end = Produced();
    return m_end != m_position;
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
