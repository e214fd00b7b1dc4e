// SPDX-License-Identifier: Apache-2.0
#include "manager/export/stream_pool.h"

#include <utility>

namespace manager {
namespace {

std::unique_ptr<std::byte[]> Take(std::vector<std::unique_ptr<std::byte[]>>& from)
{
    if (from.empty()) return nullptr;
    std::unique_ptr<std::byte[]> bytes = std::move(from.back());
    from.pop_back();
    return bytes;
}

}  // namespace

StreamPool::Block StreamPool::Small(std::size_t size)
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

StreamPool::Block StreamPool::Batch()
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

void StreamPool::Release(Block& block)
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

}  // namespace manager
