// SPDX-License-Identifier: Apache-2.0
// A worker without a thread: what is asked for is done when the time of the timers is advanced, at the
// time at which it was asked.

#ifndef TESTS_UNIT_MANAGER_FAKE_WORKER_H
#define TESTS_UNIT_MANAGER_FAKE_WORKER_H

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "base/timers.h"
#include "base/worker.h"

class FakeWorker final : public base::Worker {
public:
    /// The timers must outlive it.
    explicit FakeWorker(base::Timers& timers) : m_timers(timers) {}

    std::shared_ptr<void> Do(std::function<void()> work, std::function<void()> done) override
    {
        return m_timers.After(std::chrono::milliseconds(0), [work = std::move(work), done = std::move(done)] {
            work();
            done();
        });
    }

private:
    base::Timers& m_timers;
};

#endif
