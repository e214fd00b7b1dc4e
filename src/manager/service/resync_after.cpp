// SPDX-License-Identifier: Apache-2.0
#include "manager/service/resync_after.h"

#include <utility>

namespace manager {

using std::chrono::milliseconds;

ResyncAfter::ResyncAfter(base::Timers& timers, milliseconds rest, std::function<bool()> isNeeded,
                         std::function<void()> resync)
    : m_timers(timers), m_rest(rest), m_isNeeded(std::move(isNeeded)), m_resync(std::move(resync))
{
}

void ResyncAfter::Note()
{
    if (m_rest == milliseconds::zero()) return;
    m_last = m_timers.Now();
    // One timer for a storm of operations: it looks at the time of the last one.
    if (!m_timer) Wait(m_rest);
}

void ResyncAfter::Wait(milliseconds time)
{
    m_timer = m_timers.After(time, [this] { Look(); });
}

void ResyncAfter::Look()
{
    if (!m_isNeeded()) return m_timer.reset();
    const auto left = std::chrono::ceil<milliseconds>(m_last + m_rest - m_timers.Now());
    if (left > milliseconds::zero()) return Wait(left);
    m_timer.reset();
    m_resync();
}

}  // namespace manager
