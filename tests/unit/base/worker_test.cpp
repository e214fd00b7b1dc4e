// SPDX-License-Identifier: Apache-2.0
// What is done beside the loop: in a thread of its own, one task after the other, and no caller waits for one
// that hangs.

#include "base/worker.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "support/barrier.h"
#include "support/run_until.h"

namespace {

using support::RunUntil;
using Strings = std::vector<std::string>;

class WorkerTest : public testing::Test {
protected:
    /// Notes when it is done.
    [[nodiscard]] std::shared_ptr<void> Do(const std::string& name, std::function<void()> work)
    {
        return m_worker->Do(std::move(work), [this, name] { m_done.push_back(name); });
    }
    [[nodiscard]] bool Comes(std::size_t count)
    {
        return RunUntil(m_loop, [&] { return m_done.size() >= count; });
    }

    // A task that is left to itself keeps it.
    const std::shared_ptr<support::Barrier> m_barrier = std::make_shared<support::Barrier>();
    boost::asio::io_context m_loop;
    std::unique_ptr<base::Worker> m_worker = base::MakeWorker(m_loop);
    Strings m_done;
};

TEST_F(WorkerTest, WorksInOneThreadThatTakesNoSignalsAndHandsOverInTheLoop)
{
    std::vector<std::thread::id> threads(3);
    std::thread::id loop;
    bool takesSignals = true;
    const auto first = Do("first", [&] {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        takesSignals = sigismember(&blocked, SIGTERM) == 0 || sigismember(&blocked, SIGCHLD) == 0;
        threads[0] = std::this_thread::get_id();
    });
    const auto second = Do("second", [&] { threads[1] = std::this_thread::get_id(); });
    ASSERT_TRUE(Comes(2));
    const auto third = m_worker->Do([&] { threads[2] = std::this_thread::get_id(); },
                                    [&] {
                                        loop = std::this_thread::get_id();
                                        m_done.emplace_back("third");
                                    });
    ASSERT_TRUE(Comes(3));
    EXPECT_EQ(m_done, (Strings{"first", "second", "third"}));
    EXPECT_FALSE(takesSignals);
    EXPECT_EQ(loop, std::this_thread::get_id());
    EXPECT_NE(threads[0], loop);
    EXPECT_EQ(threads[1], threads[0]);
    EXPECT_EQ(threads[2], threads[0]);
}

TEST_F(WorkerTest, BeginsNothingBeforeTheLoopRuns)
{
    std::atomic<bool> worked = false;
    const auto task = Do("task", [&] { worked = true; });
    EXPECT_FALSE(worked);
    ASSERT_TRUE(Comes(1));
    EXPECT_TRUE(worked);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these take address space all the time
/// No stack for another thread fits in while it lives.
class NoRoom {
public:
    NoRoom()
    {
        std::uint64_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        ::getrlimit(RLIMIT_AS, &m_before);
        rlimit full = m_before;
        full.rlim_cur =
            pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) + std::uint64_t{128} * 1024;
        ::setrlimit(RLIMIT_AS, &full);
    }
    NoRoom(const NoRoom&) = delete;
    NoRoom& operator=(const NoRoom&) = delete;
    ~NoRoom() { ::setrlimit(RLIMIT_AS, &m_before); }

private:
    rlimit m_before{};
};

TEST_F(WorkerTest, WhereNoThreadCanBeMadeTheLoopDoesTheWorkUntilThereIsOne)
{
    std::thread::id first, second;
    const auto early = Do("early", [&] { first = std::this_thread::get_id(); });
    {
        const NoRoom none;
        // The C library keeps stacks of threads that have ended: these get them.
        while (base::BeginThread([barrier = m_barrier] { barrier->Wait(); })) continue;
        ASSERT_TRUE(Comes(1));
    }
    m_barrier->LetGo();
    EXPECT_EQ(first, std::this_thread::get_id());
    const auto late = Do("late", [&] { second = std::this_thread::get_id(); });
    ASSERT_TRUE(Comes(2));
    EXPECT_NE(second, first);
}
#endif

TEST_F(WorkerTest, TheLoopGoesOnWhileATaskHangs)
{
    const auto stuck = Do("stuck", [barrier = m_barrier] { barrier->Wait(); });
    const auto next = Do("next", [] {});
    int turns = 0;
    const std::function<void()> turn = [&] {
        if (++turns < 100) boost::asio::post(m_loop, turn);
    };
    boost::asio::post(m_loop, turn);
    ASSERT_TRUE(RunUntil(m_loop, [&] { return turns == 100; }));
    EXPECT_EQ(m_done, Strings{});
    m_barrier->LetGo();
    ASSERT_TRUE(Comes(2));
    EXPECT_EQ(m_done, (Strings{"stuck", "next"}));
}

TEST_F(WorkerTest, WhatIsCancelledIsNotHandedOverNorBegun)
{
    std::atomic<bool> begun = false;
    bool worked = false;
    auto stuck = Do("stuck", [&begun, barrier = m_barrier] {
        begun = true;
        barrier->Wait();
    });
    auto waiting = Do("waiting", [&worked] { worked = true; });
    const auto last = Do("last", [] {});
    ASSERT_TRUE(RunUntil(m_loop, [&] { return begun.load(); }));
    stuck.reset();
    waiting.reset();
    m_barrier->LetGo();
    ASSERT_TRUE(Comes(1));
    EXPECT_EQ(m_done, Strings{"last"});
    EXPECT_FALSE(worked);
}

TEST_F(WorkerTest, ItsEndDoesNotWaitForATaskThatHangs)
{
    struct Owned {
        explicit Owned(std::atomic<bool>& ended) : m_ended(ended) {}
        ~Owned() { m_ended = true; }
        std::atomic<bool>& m_ended;
    };
    std::atomic<bool> begun = false, ended = false;
    const auto stuck = Do("stuck", [&begun, barrier = m_barrier, owned = std::make_shared<Owned>(ended)] {
        begun = true;
        barrier->Wait();
    });
    ASSERT_TRUE(RunUntil(m_loop, [&] { return begun.load(); }));
    const auto before = std::chrono::steady_clock::now();
    m_worker.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, base::kWorkerPatience + std::chrono::seconds(5));
    EXPECT_FALSE(ended) << "it still hangs";
    m_barrier->LetGo();
    ASSERT_TRUE(RunUntil(m_loop, [&] { return ended.load(); })) << "what it owned goes with it";
    EXPECT_EQ(m_done, Strings{});
}

TEST_F(WorkerTest, ItsThreadEndsWithIt)
{
    const auto task = Do("task", [] {});
    ASSERT_TRUE(Comes(1));
    const auto before = std::chrono::steady_clock::now();
    m_worker.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, base::kWorkerPatience) << "it was idle";
}

}  // namespace
