// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/closer.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "base/worker.h"

namespace capture {

namespace {

constexpr unsigned kMaxThreads = 16;

}  // namespace

struct RingCloser::Work {
    std::mutex mutex;
    std::condition_variable ended;
    std::deque<std::shared_ptr<PacketSocketPair>> pairs;
    unsigned threads = 0;
};

RingCloser::RingCloser() : m_work(std::make_shared<Work>()) {}

RingCloser::~RingCloser()
{
    std::unique_lock lock(m_work->mutex);
    m_work->ended.wait(lock, [&] { return m_work->threads == 0; });
}

void RingCloser::Close(std::shared_ptr<PacketSocketPair> pair)
{
    const std::scoped_lock lock(m_work->mutex);
    m_work->pairs.push_back(std::move(pair));
    if (m_work->threads == kMaxThreads) return;
    if (base::BeginThread([work = m_work] { Run(work); }))
        ++m_work->threads;
    else if (m_work->threads == 0)
        m_work->pairs.clear();
}

void RingCloser::Run(const std::shared_ptr<Work>& work)
{
    std::unique_lock lock(work->mutex);
    while (!work->pairs.empty()) {
        std::shared_ptr<PacketSocketPair> pair = std::move(work->pairs.front());
        work->pairs.pop_front();
        lock.unlock();
        pair.reset();
        lock.lock();
    }
    --work->threads;
    work->ended.notify_all();
}

}  // namespace capture
