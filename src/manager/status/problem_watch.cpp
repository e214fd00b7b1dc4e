// SPDX-License-Identifier: Apache-2.0
#include "manager/status/problem_watch.h"

#include <algorithm>
#include <utility>

#include "ipc/cdb.pb.h"

namespace manager {
namespace {

/// A state answer that has nothing but the list of problems.
class DiagnosisWalk final : public ProblemWalk {
public:
    explicit DiagnosisWalk(StateAnswer::Sources sources)
        : m_answer(WithSink(std::move(sources)), WantedProblems())
    {
    }

    Progress Next(std::vector<Problem>& problems) override
    {
        m_problems = &problems;
        ipc::cdb::StateReply part;
        const bool more = m_answer.Next(part);
        if (m_answer.IsIncomplete()) return Progress::kUnknown;
        return more ? Progress::kMore : Progress::kDone;
    }

private:
    StateAnswer::Sources WithSink(StateAnswer::Sources sources)
    {
        sources.problem = [this](const Problem& problem) { m_problems->push_back(problem); };
        return sources;
    }

    static WantedState WantedProblems()
    {
        WantedState wanted;
        wanted.problems = {true, {true, {}}, {true, {}}};
        return wanted;
    }

    std::vector<Problem>* m_problems = nullptr;
    StateAnswer m_answer;
};

}  // namespace

std::unique_ptr<ProblemWalk> WalkOverDiagnosis(StateAnswer::Sources sources)
{
    return std::make_unique<DiagnosisWalk>(std::move(sources));
}

ProblemWatch::ProblemWatch(base::Timers& timers, Begin begin, Tell tell)
    : m_timers(timers), m_begin(std::move(begin)), m_tell(std::move(tell))
{
}

void ProblemWatch::Start()
{
    Stop();
    m_told.clear();
    m_work = {};
    Rest();
}

std::optional<std::vector<Problem>> ProblemWatch::Known() const
{
    if (!m_known) return std::nullopt;
    std::vector<Problem> problems;
    problems.reserve(m_told.size());
    for (const auto& [subject, name, reason] : m_told) problems.push_back({subject, name, reason, {}});
    return problems;
}

void ProblemWatch::Stop()
{
    m_known = false;
    m_timer.reset();
    m_walk.reset();
}

void ProblemWatch::Rest()
{
    m_walk.reset();
    m_seen.clear();
    m_changes.clear();
    const auto longer = std::chrono::duration_cast<std::chrono::milliseconds>(m_work * kRest);
    m_work = {};
    m_timer = m_timers.After(std::max(kPeriod, longer), [this] {
        m_walk = m_begin();
        Look();
    });
}

void ProblemWatch::Look()
{
    const auto begin = std::chrono::steady_clock::now();
    std::vector<Problem> problems;
    const auto progress = m_walk->Next(problems);
    for (Problem& problem : problems) {
        Key key{problem.subject, problem.name, problem.reason};
        const bool isKnown = m_told.contains(key);
        if (m_seen.insert(std::move(key)).second && !isKnown) m_changes.push_back({true, std::move(problem)});
    }
    m_work += std::chrono::steady_clock::now() - begin;
    switch (progress) {
    case ProblemWalk::Progress::kMore:
        m_timer = m_timers.After(kPause, [this] { Look(); });
        return;
    case ProblemWalk::Progress::kDone:
        End();
        break;
    case ProblemWalk::Progress::kUnknown:
        break;
    }
    Rest();
}

void ProblemWatch::End()
{
    for (const Key& key : m_told)
        if (!m_seen.contains(key))
            m_changes.push_back({false, {std::get<0>(key), std::get<1>(key), std::get<2>(key), {}}});
    m_told.swap(m_seen);
    m_known = true;
    if (!m_changes.empty()) m_tell(m_changes);
}

}  // namespace manager
