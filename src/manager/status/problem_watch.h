// SPDX-License-Identifier: Apache-2.0
// Notices when problems begin and end, for those who want to be told: diagnoses everything from time to time
// and compares with the time before. Works in parts, so that packets do not wait, and rests for long after
// much work. For the loop.

#ifndef MANAGER_STATUS_PROBLEM_WATCH_H
#define MANAGER_STATUS_PROBLEM_WATCH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "base/timers.h"
#include "manager/status/problem.h"
#include "manager/status/state_answer.h"

namespace manager {

struct ProblemChange {
    bool begins = false;
    Problem problem;  // without its text if it ends
};

/// Walks over all problems that there are.
class ProblemWalk {
public:
    ProblemWalk() = default;
    ProblemWalk(const ProblemWalk&) = delete;
    ProblemWalk& operator=(const ProblemWalk&) = delete;
    virtual ~ProblemWalk() = default;

    enum class Progress : std::uint8_t {
        kMore,
        kDone,
        kUnknown  // some problems can't be seen now, so the walk says nothing about any
    };
    /// Adds the problems of the next part, which is bounded work.
    virtual Progress Next(std::vector<Problem>& problems) = 0;
};

/// Over what the diagnosis finds. What the sources name must outlive it.
std::unique_ptr<ProblemWalk> WalkOverDiagnosis(StateAnswer::Sources sources);

class ProblemWatch {
public:
    /// From the end of one look at everything to the next one; longer where a look takes long: so much longer
    /// than the look that it takes at most one part in kRest of the time.
    static constexpr std::chrono::milliseconds kPeriod{5'000};
    static constexpr int kRest = 500;
    /// Between two parts of a look.
    static constexpr std::chrono::milliseconds kPause{10};

    using Begin = std::function<std::unique_ptr<ProblemWalk>()>;
    /// Never called with an empty vector. What begins comes first, in the order of the look.
    using Tell = std::function<void(const std::vector<ProblemChange>&)>;

    ProblemWatch(base::Timers& timers, Begin begin, Tell tell);

    /// Looks for the first time after kPeriod, and tells all problems that there are then as begun.
    void Start();
    void Stop();

    /// The problems that there were at the last look, without their texts; nullopt before the first one and
    /// once it is stopped.
    [[nodiscard]] std::optional<std::vector<Problem>> Known() const;

private:
    using Key = std::tuple<Subject, std::string, Reason>;

    void Look();
    void End();
    void Rest();

    base::Timers& m_timers;
    const Begin m_begin;
    const Tell m_tell;
    std::set<Key> m_told;
    bool m_known = false;
    std::unique_ptr<ProblemWalk> m_walk;  // while it looks
    std::chrono::steady_clock::duration m_work{0};
    std::set<Key> m_seen;
    std::vector<ProblemChange> m_changes;
    std::shared_ptr<void> m_timer;
};

}  // namespace manager

#endif
