// SPDX-License-Identifier: Apache-2.0
// Which session has locked which datastore (RFC 6241, section 7.5).

#ifndef AGENT_NETCONF_LOCKS_H
#define AGENT_NETCONF_LOCKS_H

#include <array>
#include <cstdint>
#include <optional>

namespace agent {

enum class Target : std::uint8_t { kRunning, kCandidate };

class Locks {
public:
    using SessionId = std::uint32_t;

    [[nodiscard]] std::optional<SessionId> Holder(Target target) const { return At(target); }

    /// The holder if it is another session than this; nullopt if not.
    [[nodiscard]] std::optional<SessionId> HeldByOther(Target target, SessionId session) const
    {
        const auto holder = At(target);
        return holder && *holder != session ? holder : std::nullopt;
    }

    void Take(Target target, SessionId session) { At(target) = session; }
    void Release(Target target) { At(target).reset(); }

private:
    using Holders = std::array<std::optional<SessionId>, 2>;
    std::optional<SessionId>& At(Target target) { return m_holders[static_cast<std::size_t>(target)]; }
    [[nodiscard]] const std::optional<SessionId>& At(Target target) const
    {
        return m_holders[static_cast<std::size_t>(target)];
    }

    Holders m_holders;
};

}  // namespace agent

#endif
