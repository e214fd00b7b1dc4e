// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/fault_intake.h"

#include <algorithm>
#include <utility>

#include "log/log.h"

namespace agent {
namespace {

/// How many processes are counted apart; the others share one bucket.
constexpr std::size_t kMaxReporters = 256;

/// The surplus is logged after it has been counted for this long.
constexpr std::chrono::milliseconds kSurplusTime{1000};

}  // namespace

FaultIntake::FaultIntake(base::Timers& timers, std::function<std::int64_t()> now, Keep keep)
    : m_timers(timers), m_now(std::move(now)), m_keep(std::move(keep)), m_all{kBurstOfAll, m_now(), 0}
{
}

FaultIntake::~FaultIntake()
{
    if (m_surplusTimer != nullptr) SaySurplus();
    Flush();
}

bool FaultIntake::TakeToken(Bucket& bucket, double burst, std::int64_t refillUs) const
{
    const std::int64_t now = m_now();
    // A step back of the clock refills nothing.
    if (now > bucket.filledUs)
        bucket.tokens = std::min(burst, bucket.tokens + static_cast<double>(now - bucket.filledUs) /
                                                            static_cast<double>(refillUs));
    bucket.filledUs = now;
    if (bucket.tokens < 1) return false;
    bucket.tokens -= 1;
    return true;
}

FaultIntake::Bucket& FaultIntake::BucketOf(const std::string& reporter)
{
    if (const auto found = m_reporters.find(reporter); found != m_reporters.end()) return found->second;
    // A bucket that would be full by now, without surplus to log, equals a new one.
    const auto isFull = [now = m_now()](const auto& entry) {
        const auto& [name, bucket] = entry;
        return bucket.refused == 0 &&
               bucket.tokens + static_cast<double>(now - bucket.filledUs) / kRefillUs >= kBurst;
    };
    if (m_reporters.size() >= kMaxReporters) std::erase_if(m_reporters, isFull);
    const std::string& key = m_reporters.size() < kMaxReporters ? reporter : "other processes";
    return m_reporters.try_emplace(key, Bucket{kBurst, m_now(), 0}).first->second;
}

void FaultIntake::Take(const std::string& reporter, cdb::Fault fault)
{
    Bucket& own = BucketOf(reporter);
    if (!TakeToken(own, kBurst, kRefillUs) || !TakeToken(m_all, kBurstOfAll, kRefillOfAllUs)) {
        ++own.refused;
        if (m_surplusTimer == nullptr)
            m_surplusTimer = m_timers.After(kSurplusTime, [this] { SaySurplus(); });
        return;
    }
    slog::Error("{} reports a fault of kind {} in {} ({}:{}): {}", fault.process, fault.kind, fault.function,
                fault.file, fault.line, fault.text);
    m_waiting.push_back(std::move(fault));
    if (m_batchTimer == nullptr) m_batchTimer = m_timers.After(kBatchTime, [this] { Flush(); });
}

void FaultIntake::Flush()
{
    m_batchTimer.reset();
    if (!m_waiting.empty()) m_keep(std::exchange(m_waiting, {}));
}

void FaultIntake::SaySurplus()
{
    constexpr std::size_t kNamed = 4;
    m_surplusTimer.reset();
    std::uint64_t total = 0;
    std::size_t named = 0;
    std::string who;
    for (auto& [reporter, bucket] : m_reporters) {
        if (bucket.refused == 0) continue;
        total += bucket.refused;
        if (named++ < kNamed)
            who.append(who.empty() ? "" : ", ")
                .append(reporter)
                .append(": " + std::to_string(bucket.refused));
        bucket.refused = 0;
    }
    slog::Error("{} faults are left out, more than a process may report ({}{})", total, who,
                named > kNamed ? ", ..." : "");
}

}  // namespace agent
