// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/maker.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <utility>

#include "base/worker.h"
#include "capture/ebpf/grace.h"

namespace capture {
namespace {

// The threads wait in the kernel together, and use no CPU then.
constexpr std::size_t kMaxLanes = 64;
constexpr unsigned kMaxThreads = 32;

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
    if (!pair) return;
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

PairMaker::~PairMaker()
{
    for (const auto& lane : m_lanes) {
        lane->task.reset();
        lane->worker.reset();
        if (lane->job) m_closer.Close(std::move(lane->job->wanted.pair));
    }
    for (const auto& job : m_waiting) m_closer.Close(std::move(job->wanted.pair));
}

std::shared_ptr<void> PairMaker::Prepare(Wanted wanted, Done done)
{
    auto held = std::make_shared<Done>(std::move(done));
    m_waiting.push_back(std::make_shared<Job>(Job{std::move(wanted), held, std::nullopt}));
    Next();
    return held;
}

void PairMaker::Do(Job& job)
{
    Wanted& wanted = job.wanted;
    try {
        if (!wanted.pair) wanted.pair = std::make_shared<PacketSocketPair>(wanted.bytes);
        wanted.pair->Prepare(wanted.ifIndex, wanted.settings, wanted.ownMark);
    } catch (const Unavailable& reason) {
        job.refusal = reason;
    } catch (const std::exception& reason) {
        job.refusal.emplace(Unavailable::Cause::kOther, reason.what());
    }
}

void PairMaker::Next()
{
    while (!m_waiting.empty()) {
        if (m_waiting.front()->done.expired()) {
            m_closer.Close(std::move(m_waiting.front()->wanted.pair));
            m_waiting.pop_front();
            continue;
        }
        Lane* lane = FreeLane();
        if (lane == nullptr) return;
        m_grace.Step();
        lane->job = std::move(m_waiting.front());
        m_waiting.pop_front();
        lane->task = lane->worker->Do([job = lane->job] { Do(*job); }, [this, lane] { Take(*lane); });
    }
}

PairMaker::Lane* PairMaker::FreeLane()
{
    const auto free = std::ranges::find_if(m_lanes, [](const auto& lane) { return lane->job == nullptr; });
    if (free != m_lanes.end()) return free->get();
    if (m_lanes.size() == kMaxLanes) return nullptr;
    try {
        m_lanes.push_back(
            std::make_unique<Lane>(Lane{base::MakeWorker(m_loop, base::kWorkerWaits), nullptr, nullptr}));
    } catch (const std::system_error& error) {
        if (m_lanes.empty()) throw Unavailable(Unavailable::Cause::kOther, error.what());
        return nullptr;
    }
    return m_lanes.back().get();
}

void PairMaker::Take(Lane& lane)
{
    const std::shared_ptr<Job> job = std::exchange(lane.job, nullptr);
    lane.task.reset();
    Next();
    if (const auto done = job->done.lock())
        (*done)(std::move(job->wanted.pair), job->refusal ? &*job->refusal : nullptr);
    else
        m_closer.Close(std::move(job->wanted.pair));
    const bool idle = std::ranges::all_of(m_lanes, [](const auto& each) { return each->job == nullptr; });
    if (idle && m_waiting.empty()) m_lanes.clear();
}

}  // namespace capture
