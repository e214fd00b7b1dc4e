// SPDX-License-Identifier: Apache-2.0
// The faults that processes report, on their way to the store: bounded in number for each process and for
// all, and handed over in batches. What was too much is counted and said in one line.

#ifndef AGENT_CLIENTS_FAULT_INTAKE_H
#define AGENT_CLIENTS_FAULT_INTAKE_H

#include <cstddef>
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
    /// A process may report so many at once, and one more each `kRefill`; likewise all together.
    static constexpr double kBurst = 20;
    static constexpr double kBurstOfAll = 100;
    static constexpr std::int64_t kRefillUs = 1'000'000;
    static constexpr std::int64_t kRefillOfAllUs = 100'000;
    /// A batch is what comes within this time of its first fault.
    static constexpr std::chrono::milliseconds kBatchTime{50};

    using Keep = std::function<void(std::vector<cdb::Fault> faults)>;

    /// `now`: microseconds since the epoch. `keep` is called from the loop and may hand on to another thread.
    FaultIntake(base::Timers& timers, std::function<std::int64_t()> now, Keep keep);
    /// Hands over what waits.
    ~FaultIntake();
    FaultIntake(const FaultIntake&) = delete;
    FaultIntake& operator=(const FaultIntake&) = delete;

    /// `reporter` is who is counted: "sflow-app (process 1234)", made of what the kernel says.
    void Take(const std::string& reporter, cdb::Fault fault);

    void Flush();

private:
    /// Tokens that come back with time.
    struct Bucket {
        double tokens = 0;
        std::int64_t filledUs = 0;
        std::uint64_t refused = 0;  // since the last line
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
