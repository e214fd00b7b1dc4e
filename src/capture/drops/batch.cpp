// SPDX-License-Identifier: Apache-2.0
#include "capture/drops/batch.h"

#include <cstdlib>

namespace capture {

std::span<const Drop> DropBatch::Next()
{
    std::size_t count = 0;
    while (count < kBatch) {
        const auto* record = static_cast<const DropRecord*>(m_ring.Next());
        if (record == nullptr) break;
        Describe(*record, m_drops[count++]);
    }
    return {m_drops.data(), count};
}

std::uint64_t DropBatch::UntoldAt(std::uint32_t ifIndex)
{
    const auto [place, isNew] = m_untold.try_emplace(ifIndex, 0);
    if (isNew)
        if (const auto counts = m_program.ReadCounts(ifIndex)) place->second = counts->untold;
    return place->second;
}

void DropBatch::Describe(const DropRecord& record, Drop& drop)
{
    drop.ifIndex = record.ifIndex;
    drop.input = record.input;
    drop.output = record.output;
    drop.reason = record.reason;
    drop.reasonName = m_reasons.NameOf(record.reason);
    drop.function = m_program.FunctionAt(record.location);
    drop.routeError = std::abs(record.routeError);
    drop.time = record.time;
    drop.length = record.length;
    drop.etherType = record.etherType;
    drop.tagProtocol = record.tagProtocol;
    drop.tagControl = record.tagControl;
    drop.start = static_cast<HeaderStart>(record.start);
    drop.header = {reinterpret_cast<const std::byte*>(&record + 1), record.captured};
    drop.untold = UntoldAt(record.ifIndex);
}

}  // namespace capture
