// SPDX-License-Identifier: Apache-2.0
// Traces and faults.

#include <qxmw/qxmw.h>
#include <zlog.h>

#include "world.h"

namespace {

class MiddlewareTest : public World {};

TEST_F(MiddlewareTest, GivesTheProcessOneCategory)
{
    auto* const category = qxmw_trace_init(m_context->GetSharedQxmw(), "sflow-app");
    ASSERT_NE(category, nullptr);
    EXPECT_EQ(qxmw_trace_init(m_context->GetSharedQxmw(), "sflow-app"), category);
    zlog(category, "src/daemon/sflow_app", 20, "Run", 3, 87, 12, "SFlow App Run");
    EXPECT_NE(Log().find("Z sflow-app 12 src/daemon/sflow_app:Run:87 SFlow App Run\n"), std::string::npos)
        << Log();
}

TEST_F(MiddlewareTest, ReportsAFaultToTheLogAndToCdbd)
{
    m_cdb->Listen();
    qxmw_gen_fault(1, "CreateCallback", "src/daemon/sflow_set_default", 42, "two\nlines");
    Settle();
    EXPECT_NE(
        Log().find(
            "Z sflow-app 13 src/daemon/sflow_set_default:CreateCallback:42 fault of kind 1: two\\nlines\n"),
        std::string::npos)
        << Log();
    const auto messages = m_cdb->Take();
    ASSERT_EQ(messages.size(), 1U);
    const auto& report = messages[0].fault_report();
    EXPECT_EQ(report.process(), "sflow-app");
    EXPECT_EQ(report.pid(), ::getpid());
    EXPECT_EQ(report.kind(), 1);
    EXPECT_EQ(report.function(), "CreateCallback");
    EXPECT_EQ(report.file(), "src/daemon/sflow_set_default");
    EXPECT_EQ(report.line(), 42);
    EXPECT_EQ(report.text(), "two\nlines");
    EXPECT_GT(report.time_us(), std::int64_t{1'500'000'000'000'000});
    EXPECT_FALSE(m_cdb->IsConnected());
}

TEST_F(MiddlewareTest, ReportsAFaultToTheLogAloneWithoutCdbd)
{
    qxos::the_context = nullptr;
    qxmw_gen_fault(0, "Run", "src/daemon/sflow_app", 7, "");
    qxos::the_context = m_context.get();
    EXPECT_NE(Log().find(" 13 src/daemon/sflow_app:Run:7 fault of kind 0: \n"), std::string::npos) << Log();
}

TEST_F(MiddlewareTest, WritesTheStackToTheLog)
{
    qxmw_print_backtrace();
    const std::string log = Log();
    EXPECT_NE(log.find(" 13 src/platform/embedded/qxmw/qxmw:qxmw_print_backtrace:"), std::string::npos)
        << log;
    EXPECT_NE(log.find("backtrace #0: "), std::string::npos);
    EXPECT_NE(log.find("backtrace #3: "), std::string::npos);
}

}  // namespace
