// SPDX-License-Identifier: Apache-2.0
// The memory in which datagrams wait, shared by all streams of an exporter: small blocks for the one datagram
// that is being filled, and a bounded number of large ones for streams that have more. A stream that has
// nothing to send holds none. Knows nothing of datagrams.

#ifndef MANAGER_EXPORT_STREAM_POOL_H
#define MANAGER_EXPORT_STREAM_POOL_H

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace manager {

class StreamPool {
public:
    static constexpr std::size_t kBatch = 65536;  // bytes of a large block
    static constexpr std::size_t kMaxBatches = 32;

    /// Memory of a stream; empty if `capacity` is 0.
    struct Block {
        std::unique_ptr<std::byte[]> bytes;
        std::size_t capacity = 0;
        bool batch = false;
    };

    /// A block of `size` bytes or a little more; `size` is at most kBatch.
    [[nodiscard]] Block Small(std::size_t size)
    {
        const std::size_t steps = (size + kStep - 1) / kStep;
        Block block{Take(m_small.at(steps)), steps * kStep, false};
        if (block.bytes) {
            m_keptSmall -= block.capacity;
        } else {
            block.bytes = std::make_unique_for_overwrite<std::byte[]>(block.capacity);
            m_bytes += block.capacity;
        }
        return block;
    }

    /// A block of kBatch bytes; empty if kMaxBatches are in use.
    [[nodiscard]] Block Batch()
    {
        if (m_batchesOut == kMaxBatches) return {};
        Block block{Take(m_batches), kBatch, true};
        if (!block.bytes) {
            block.bytes = std::make_unique_for_overwrite<std::byte[]>(kBatch);
            m_bytes += kBatch;
        }
        ++m_batchesOut;
        return block;
    }

    /// Takes a block back and leaves `block` empty. Some are kept for the next, the rest is freed.
    void Release(Block& block)
    {
        if (!block.bytes) return;
        if (block.batch) --m_batchesOut;
        if (block.batch && m_batches.size() < kKeptBatches) {
            m_batches.push_back(std::move(block.bytes));
        } else if (!block.batch && m_keptSmall + block.capacity <= kKeptSmall) {
            m_small.at(block.capacity / kStep).push_back(std::move(block.bytes));
            m_keptSmall += block.capacity;
        } else {
            m_bytes -= block.capacity;
        }
        block = {};
    }

    /// Bytes in all blocks, those that are kept included.
    [[nodiscard]] std::size_t Bytes() const { return m_bytes; }

private:
    static constexpr std::size_t kStep = 512;  // small blocks come in multiples of it
    static constexpr std::size_t kKeptSmall = std::size_t{256} * 1024;  // bytes
    static constexpr std::size_t kKeptBatches = 4;
    using Free = std::vector<std::unique_ptr<std::byte[]>>;

    static std::unique_ptr<std::byte[]> Take(Free& from)
    {
        if (from.empty()) return nullptr;
        std::unique_ptr<std::byte[]> bytes = std::move(from.back());
        from.pop_back();
        return bytes;
    }

    std::array<Free, kBatch / kStep + 1> m_small;  // by size in steps
    Free m_batches;
    std::size_t m_keptSmall = 0;  // bytes
    std::size_t m_batchesOut = 0;
    std::size_t m_bytes = 0;
};

}  // namespace manager

#endif
