// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/pair.h"

#include <algorithm>
#include <chrono>

namespace capture {

void PacketSocketPair::Prepare(std::uint32_t ifIndex, const Settings& settings, std::uint32_t ownMark,
                               Hook hook)
{
    MakeRing();
    m_settings = settings;
    const bool ignore = !settings.egress;
    const bool ignored = m_counting->IgnoreOutgoing(ignore) && m_sampling.IgnoreOutgoing(ignore);
    m_scope = {settings.ingress, settings.egress, ownMark, ignored};
    m_counting->Bind(ifIndex);
    m_sampling.Bind(ifIndex);
    if (hook == Hook::kSeparate) return;
    m_group = MakeGroup(*m_counting, ignored);
    if (m_group && !JoinGroup(m_sampling, *m_group)) m_group.reset();
    if (m_group) DivideBy(kSamplingMember);
}

std::shared_ptr<PacketSocketPair> PacketSocketPair::MakeFollower(std::uint32_t ifIndex,
                                                                 const Settings& settings, std::size_t bytes)
{
    if (SuccessionWith(settings) != Succession::kNow) return nullptr;
    // The pair that this one has followed has left: this ring is the second member now, and the program must
    // name it so before there is a third again.
    if (Follows()) DivideBy(kSamplingMember);
    std::shared_ptr<PacketSocketPair> follower(new PacketSocketPair(bytes, m_counting));
    follower->m_settings = settings;
    follower->m_scope = m_scope;
    follower->MakeRing();
    follower->m_sampling.Bind(ifIndex);
    if (!JoinGroup(follower->m_sampling, *m_group)) return nullptr;
    follower->m_group = m_group;
    follower->m_followed = m_end;
    m_hasFollower = true;
    return follower;
}

PacketSocketPair::Succession PacketSocketPair::SuccessionWith(const Settings& settings) const
{
    if (!m_group || m_hasFollower) return Succession::kNever;
    if (settings.ingress != m_settings.ingress || settings.egress != m_settings.egress)
        return Succession::kNever;
    const bool alone =
        !Follows() || m_followed.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    return alone ? Succession::kNow : Succession::kLater;
}

void PacketSocketPair::Open()
{
    const std::uint32_t bytes = SnapLength(m_settings);
    if (!m_group) {
        m_counting->Attach(CountingFilter(m_scope));
        m_sampling.Attach(SamplingFilter(m_settings.rate, bytes, m_scope));
        return;
    }
    // The counting socket of a group gets only what is in the scope, if there is one.
    if (m_scope.ingress || m_scope.egress) m_counting->DetachFilter();
    m_sampling.Attach(KeepingFilter(bytes, m_scope));
    if (!m_divided) DivideBy(kNextSamplingMember);
}

void PacketSocketPair::DivideBy(std::uint32_t samplingMember)
{
    if (!Divide(m_sampling, DividingProgram(m_settings.rate, m_scope, samplingMember)))
        throw Unavailable(Unavailable::Cause::kOther, "no program for a group of packet sockets");
    m_divided = true;
}

void PacketSocketPair::Close()
{
    m_sampling.Attach(RejectingFilter());
    m_counting->Attach(RejectingFilter());
}

void PacketSocketPair::SetHeaderSize(std::uint16_t bytes)
{
    m_settings.headerSize = bytes;
    const std::uint32_t kept = SnapLength(m_settings);
    m_sampling.Attach(m_group ? KeepingFilter(kept, m_scope)
                              : SamplingFilter(m_settings.rate, kept, m_scope));
}

Counts PacketSocketPair::Count()
{
    const RingStatistics& sampled = m_sampling.Statistics();
    m_inRing = sampled.passed - sampled.dropped;
    const std::uint64_t counted = m_counting->Statistics().passed - m_countedBefore;
    return {m_group ? counted + sampled.passed : counted, sampled.dropped};
}

bool PacketSocketPair::IsReadable()
{
    if (m_sampling.Area().memory != nullptr) return true;
    Count();
    return m_inRing > 0 && m_sampling.Map();
}

std::size_t RingSizeFor(std::uint32_t rate)
{
    constexpr std::size_t kMin = 64U << 10U;
    constexpr std::size_t kMax = 4U << 20U;
    constexpr std::size_t kOfAll = 32U << 20U;
    return std::clamp(kOfAll / std::max<std::uint32_t>(rate, 1), kMin, kMax);
}

}  // namespace capture
