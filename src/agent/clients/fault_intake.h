// SPDX-License-Identifier: Apache-2.0
// Takes the faults that processes report on their way to the store: bounds their number for each process and
// for all, and hands them over in batches. Counts and logs the surplus.

#ifndef AGENT_CLIENTS_FAULT_INTAKE_H
#define AGENT_CLIENTS_FAULT_INTAKE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/timers.h"
#include "cdb/store/store.h"

namespace agent {

class FaultIntake {
public:
    /// A process may report kBurst faults at once, and one more every kRefillUs; likewise all together.
    static constexpr double kBurst = 20;
    static constexpr double kBurstOfAll = 100;
    static constexpr std::int64_t kRefillUs = 1'000'000;
    static constexpr std::int64_t kRefillOfAllUs = 100'000;
    /// A batch has the faults that come within this time of its first one.
    static constexpr std::chrono::milliseconds kBatchTime{50};

    using Keep = std::function<void(std::vector<cdb::Fault> faults)>;

    /// `now`: microseconds since the epoch. `keep` is called from the loop, never with an empty vector.
    FaultIntake(base::Timers& timers, std::function<std::int64_t()> now, Keep keep);
    /// Hands over the faults that wait.
    ~FaultIntake();
    FaultIntake(const FaultIntake&) = delete;
    FaultIntake& operator=(const FaultIntake&) = delete;

    /// `reporter`: the process that is counted, "process 1234, uid 0", made of what the kernel says.
    void Take(const std::string& reporter, cdb::Fault fault);

    /// Hands over the faults that wait, now.
    void Flush();

private:
    /// Tokens that come back with time.
    struct Bucket {
        double tokens = 0;
        std::int64_t filledUs = 0;
        std::uint64_t refused = 0;  // since the last log line
    };
    [[nodiscard]] bool TakeToken(Bucket& bucket, double burst, std::int64_t refillUs) const;
    Bucket& BucketOf(const std::string& reporter);
    void SaySurplus();

    base::Timers& m_timers;
    std::function<std::int64_t()> m_now;
    Keep m_keep;
    Bucket m_all;
    std::map<std::string, Bucket> m_reporters;
    std::vector<cdb::Fault> m_waiting;
    std::shared_ptr<void> m_batchTimer;
    std::shared_ptr<void> m_surplusTimer;
};

}  // namespace agent

#endif
