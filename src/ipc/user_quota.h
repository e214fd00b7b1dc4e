// SPDX-License-Identifier: Apache-2.0
// Counts how many of something each user has. Root is not counted, so that it can't be locked out.

#ifndef IPC_USER_QUOTA_H
#define IPC_USER_QUOTA_H

#include <cstddef>
#include <cstdint>
#include <map>

namespace ipc {

class UserQuota {
public:
    explicit UserQuota(std::size_t most) : m_most(most) {}

    [[nodiscard]] std::size_t Most() const { return m_most; }

    /// Returns false if the user has as many as allowed.
    [[nodiscard]] bool Take(std::uint32_t uid)
    {
        if (uid == 0) return true;
        std::size_t& count = m_counts[uid];
        if (count >= m_most) return false;
        ++count;
        return true;
    }

    void GiveBack(std::uint32_t uid)
    {
        const auto found = m_counts.find(uid);
        if (found != m_counts.end() && --found->second == 0) m_counts.erase(found);
    }

private:
    std::size_t m_most;
    std::map<std::uint32_t, std::size_t> m_counts;
};

}  // namespace ipc

#endif
