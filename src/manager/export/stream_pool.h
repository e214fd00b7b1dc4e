// SPDX-License-Identifier: Apache-2.0
// The memory in which datagrams wait, shared by all streams of an exporter: small blocks for the one datagram
// that is being filled, and a bounded number of large ones for streams that have more. A stream that has
// nothing to send holds none. Knows nothing of datagrams.

#ifndef MANAGER_EXPORT_STREAM_POOL_H
#define MANAGER_EXPORT_STREAM_POOL_H

#include <array>
#include <cstddef>
#include <memory>
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
    [[nodiscard]] Block Small(std::size_t size);
    /// A block of kBatch bytes; empty if kMaxBatches are in use.
    [[nodiscard]] Block Batch();
    /// Takes a block back and leaves `block` empty. Some are kept for the next, the rest is freed.
    void Release(Block& block);

    /// Bytes in all blocks, those that are kept included.
    [[nodiscard]] std::size_t Bytes() const { return m_bytes; }

private:
    static constexpr std::size_t kStep = 512;  // small blocks come in multiples of it
    static constexpr std::size_t kKeptSmall = std::size_t{256} * 1024;  // bytes
    static constexpr std::size_t kKeptBatches = 4;
    using Free = std::vector<std::unique_ptr<std::byte[]>>;

    std::array<Free, kBatch / kStep + 1> m_small;  // by size in steps
    Free m_batches;
    std::size_t m_keptSmall = 0;  // bytes
    std::size_t m_batchesOut = 0;
    std::size_t m_bytes = 0;
};

}  // namespace manager

#endif
