// SPDX-License-Identifier: Apache-2.0
// The process context: its loop's end, and two contexts at once.

#include <boost/asio/post.hpp>

#include <csignal>

#include "platform/embedded/runtime.h"
#include "world.h"

namespace {

class ContextTest : public World {};

TEST_F(ContextTest, EndsTheLoopNormallyOnATerminationSignal)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        const qxmw_process_signature_t signature{"sflow-app"};
        qxos::Context context(&signature, {});
        boost::asio::post(qxos::ContextAccess::RuntimeOf(context).loop, [signal] { std::raise(signal); });
        EXPECT_EQ(context.GetServer().Run(), 0);
    }
}

TEST_F(ContextTest, RunsOnWithoutWork)
{
    boost::asio::post(m_runtime->loop, [] {});
    m_runtime->loop.run_for(std::chrono::milliseconds(1));
    boost::asio::post(m_runtime->loop, [] { std::raise(SIGTERM); });
    EXPECT_EQ(m_context->GetServer().Run(), 0);
}

TEST_F(ContextTest, LetsExceptionsOut)
{
    boost::asio::post(m_runtime->loop, [] { throw 5; });
    EXPECT_THROW(m_context->GetServer().Run(), int);
}

TEST_F(ContextTest, TakesItsProcessNameFromTheSignature)
{
    qxmw_process_signature_t whole{};
    std::fill(std::begin(whole.name), std::end(whole.name), 'x');
    qxos::Context context(&whole, {});
    EXPECT_EQ(qxos::ContextAccess::RuntimeOf(context).process, std::string(sizeof whole.name, 'x'));
    EXPECT_EQ(m_runtime->process, "sflow-app");
    EXPECT_EQ(m_runtime->cdbSocket, m_directory / "cdb.sock");
}

TEST_F(ContextTest, MayBeReplacedByANewOneFirst)
{
    const qxmw_process_signature_t signature{"sflow-app"};
    auto next = std::make_unique<qxos::Context>(&signature, qxos::Context::HaStateChangeCallbacks{});
    auto* const old = std::exchange(qxos::the_context, next.get());
    EXPECT_EQ(old, m_context.get());
    m_manager.reset();
    m_cdb.reset();
    m_context.reset();
    boost::asio::post(qxos::ContextAccess::RuntimeOf(*next).loop, [] { std::raise(SIGTERM); });
    EXPECT_EQ(next->GetServer().Run(), 0);
    qxos::the_context = nullptr;
}

}  // namespace
