#include "capture/ring_closer.h"

#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace capture {

namespace {

constexpr unsigned kMostThreads = 16;

// Signals are the loop's: a thread made meanwhile takes none.
class NoSignals {
public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

}  // namespace

struct RingCloser::Work {
    std::mutex mutex;
    std::condition_variable ended;
    std::deque<std::shared_ptr<RingPair>> pairs;
    unsigned threads = 0;
};

RingCloser::RingCloser() : m_work(std::make_shared<Work>()) {}

RingCloser::~RingCloser()
{
    std::unique_lock lock(m_work->mutex);
    m_work->ended.wait(lock, [&] { return m_work->threads == 0; });
}

void RingCloser::Close(std::shared_ptr<RingPair> pair)
{
    const std::scoped_lock lock(m_work->mutex);
    m_work->pairs.push_back(std::move(pair));
    if (m_work->threads == kMostThreads) return;
    try {
        const NoSignals none;
        std::thread(&RingCloser::Run, m_work).detach();
        ++m_work->threads;
    } catch (const std::system_error&) {
        if (m_work->threads == 0) m_work->pairs.clear();
    }
}

void RingCloser::Run(const std::shared_ptr<Work>& work)
{
    std::unique_lock lock(work->mutex);
    while (!work->pairs.empty()) {
        std::shared_ptr<RingPair> pair = std::move(work->pairs.front());
        work->pairs.pop_front();
        lock.unlock();
        pair.reset();
        lock.lock();
    }
    --work->threads;
    work->ended.notify_all();
}

}  // namespace capture
