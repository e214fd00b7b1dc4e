#include "capture/ring_pair.h"

#include <algorithm>

namespace capture {

void RingPair::Prepare(std::uint32_t ifIndex, const Settings& settings, std::uint32_t ownMark, Hook hook)
{
    m_settings = settings;
    const bool ignore = !settings.egress;
    const bool ignored = m_counting.IgnoreOutgoing(ignore) && m_sampling.IgnoreOutgoing(ignore);
    m_scope = {settings.ingress, settings.egress, ownMark, ignored};
    m_counting.Bind(ifIndex);
    m_sampling.Bind(ifIndex);
    m_shared = hook == Hook::kShared &&
               JoinInGroup(m_counting, m_sampling, DividingProgram(settings.rate, m_scope), ignored);
}

void RingPair::Open()
{
    const std::uint32_t bytes = SnapLength(m_settings);
    if (!m_shared) {
        m_counting.Attach(CountingFilter(m_scope));
        m_sampling.Attach(DrawingFilter(m_settings.rate, bytes, m_scope));
        return;
    }
    // What comes to the counting one of a group is in the scope, if there is one.
    if (m_scope.ingress || m_scope.egress) m_counting.DetachFilter();
    m_sampling.Attach(KeepingFilter(bytes, m_scope));
}

void RingPair::Close()
{
    m_sampling.Attach(RejectingFilter());
    m_counting.Attach(RejectingFilter());
}

void RingPair::SetHeaderSize(std::uint16_t bytes)
{
    m_settings.headerSize = bytes;
    const std::uint32_t kept = SnapLength(m_settings);
    m_sampling.Attach(m_shared ? KeepingFilter(kept, m_scope)
                               : DrawingFilter(m_settings.rate, kept, m_scope));
}

Counts RingPair::Count()
{
    const RingStatistics& drawn = m_sampling.Statistics();
    m_inRing = drawn.passed - drawn.dropped;
    const std::uint64_t counted = m_counting.Statistics().passed;
    return {m_shared ? counted + drawn.passed : counted, drawn.dropped};
}

bool RingPair::IsReadable()
{
    if (m_sampling.Area().memory != nullptr) return true;
    Count();
    return m_inRing > 0 && m_sampling.Map();
}

std::size_t RingSizeFor(std::uint32_t rate)
{
    constexpr std::size_t kLeast = 64U << 10U;
    constexpr std::size_t kMost = 4U << 20U;
    constexpr std::size_t kOfAll = 32U << 20U;
    return std::clamp(kOfAll / std::max<std::uint32_t>(rate, 1), kLeast, kMost);
}

}  // namespace capture
