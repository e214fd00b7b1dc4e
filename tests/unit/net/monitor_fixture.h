// SPDX-License-Identifier: Apache-2.0
// A monitor on a network and a loop of the test's own.

#ifndef TESTS_UNIT_NET_MONITOR_FIXTURE_H
#define TESTS_UNIT_NET_MONITOR_FIXTURE_H

#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "base/worker.h"
#include "net/monitor/monitor.h"
#include "support/network.h"
#include "support/run_until.h"

namespace net {

class MonitorFixture : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        m_timers = base::MakeTimers(m_loop);
        m_worker = base::MakeWorker(m_loop);
        m_monitor = std::make_unique<Monitor>(m_loop, *m_timers, *m_worker);
    }

    /// Runs the loop until this holds.
    template <typename Condition>
    [[nodiscard]] bool Comes(Condition condition)
    {
        return support::RunUntil(m_loop, condition);
    }

    std::optional<support::Network> m_network;
    boost::asio::io_context m_loop;
    std::unique_ptr<base::Timers> m_timers;
    std::unique_ptr<base::Worker> m_worker;
    std::unique_ptr<Monitor> m_monitor;
};

}  // namespace net

#endif
