// SPDX-License-Identifier: Apache-2.0
// The thread knows nothing of the loop: an eventfd tells the loop that a task is done.

#include "base/worker.h"

#include <pthread.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include "base/unique_fd.h"

namespace base {
namespace {

using Action = std::function<void()>;

constexpr std::size_t kStack = std::size_t{256} * 1024;

void* RunThread(void* held)
{
    const std::unique_ptr<Action> run(static_cast<Action*>(held));
    (*run)();
    return nullptr;
}

struct Task {
    Action work;
    std::weak_ptr<Action> done;  // expired: cancelled
};

/// Shared by the loop and the thread; the last of them destroys it.
class Desk {
public:
    Desk() : m_news(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!m_news) throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    /// Readable when something is done.
    [[nodiscard]] int News() const { return m_news.Get(); }

    /// True if a thread is there to do it.
    bool Put(Task task)
    {
        const std::scoped_lock lock(m_mutex);
        m_waiting.push_back(std::move(task));
        m_changed.notify_all();
        return m_served;
    }

    [[nodiscard]] std::vector<std::weak_ptr<Action>> TakeDone()
    {
        eventfd_t ignored = 0;
        (void)::eventfd_read(m_news.Get(), &ignored);
        const std::scoped_lock lock(m_mutex);
        return std::exchange(m_done, {});
    }

    void SetServed(bool served)
    {
        const std::scoped_lock lock(m_mutex);
        m_served = served;
    }

    /// Does the waiting tasks, and all that come until End.
    void Serve()
    {
        std::unique_lock lock(m_mutex);
        while (!m_ending) {
            if (m_waiting.empty())
                m_changed.wait(lock);
            else
                DoNext(lock);
        }
        m_served = false;
        m_changed.notify_all();
    }

    void DoAllThatWaits()
    {
        std::unique_lock lock(m_mutex);
        while (!m_waiting.empty()) DoNext(lock);
    }

    /// Begins no further task; waits at most `patience` for the one under way.
    void End(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(m_mutex);
        m_ending = true;
        m_changed.notify_all();
        m_changed.wait_for(lock, patience, [this] { return !m_served; });
    }

private:
    void DoNext(std::unique_lock<std::mutex>& lock)
    {
        Task task = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        if (!task.done.expired()) task.work();
        task.work = nullptr;
        lock.lock();
        m_done.push_back(std::move(task.done));
        (void)::eventfd_write(m_news.Get(), 1);
    }

    const UniqueFd m_news;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Task> m_waiting;
    std::vector<std::weak_ptr<Action>> m_done;
    bool m_served = false;  // by a thread
    bool m_ending = false;
};

class ThreadWorker final : public Worker {
public:
    ThreadWorker(boost::asio::io_context& loop, std::chrono::milliseconds patience)
        : m_loop(loop), m_patience(patience), m_news(loop, m_desk->News())
    {
        Await();
    }
    ThreadWorker(const ThreadWorker&) = delete;
    ThreadWorker& operator=(const ThreadWorker&) = delete;
    ~ThreadWorker() override
    {
        m_alive.reset();
        m_news.release();  // the thread may still use it
        m_desk->End(m_patience);
    }

    std::shared_ptr<void> Do(std::function<void()> work, std::function<void()> done) override
    {
        auto held = std::make_shared<Action>(std::move(done));
        if (!m_desk->Put({std::move(work), held}))
            boost::asio::post(m_loop, [this, alive = Alive(m_alive)] {
                if (!alive.expired()) Begin();
            });
        return held;
    }

private:
    // A handler that is under way when the worker ends finds this expired.
    using Alive = std::weak_ptr<bool>;

    void Begin()
    {
        if (m_begun) return;
        m_desk->SetServed(true);
        m_begun = BeginThread([desk = m_desk] { desk->Serve(); });
        if (m_begun) return;
        m_desk->SetServed(false);
        m_desk->DoAllThatWaits();
    }

    void Await()
    {
        m_news.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                          [this, alive = Alive(m_alive)](const boost::system::error_code& error) {
                              if (error || alive.expired()) return;
                              const auto finished = m_desk->TakeDone();
                              Await();
                              for (const auto& each : finished)
                                  if (const auto done = each.lock()) (*done)();
                          });
    }

    boost::asio::io_context& m_loop;
    const std::chrono::milliseconds m_patience;
    const std::shared_ptr<Desk> m_desk = std::make_shared<Desk>();
    boost::asio::posix::stream_descriptor m_news;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    bool m_begun = false;  // a thread runs
};

}  // namespace

bool BeginThread(std::function<void()> run)
{
    auto held = std::make_unique<Action>(std::move(run));
    sigset_t all;
    sigfillset(&all);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_t thread{};
    const bool begun = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                       pthread_attr_setstacksize(&attributes, kStack) == 0 &&
                       pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                       pthread_create(&thread, &attributes, &RunThread, held.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (begun) (void)held.release();  // the thread has it
    return begun;
}

std::unique_ptr<Worker> MakeWorker(boost::asio::io_context& loop, std::chrono::milliseconds patience)
{
    return std::make_unique<ThreadWorker>(loop, patience);
}

}  // namespace base
