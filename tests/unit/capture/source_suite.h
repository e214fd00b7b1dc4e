// SPDX-License-Identifier: Apache-2.0
// What every source of packets has to do, as one suite that runs on each of them: a network of the test's
// own with virtual cables, numbered frames, and a record of all that was sampled. The tests are in
// source_suite_*.cpp; which sources there are is in source_suite.cpp.

#ifndef TESTS_UNIT_CAPTURE_SOURCE_SUITE_H
#define TESTS_UNIT_CAPTURE_SOURCE_SUITE_H

#include <sched.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <boost/asio/io_context.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/timers.h"
#include "capture/packet_source.h"
#include "support/network.h"

namespace source_suite {

inline constexpr std::uint32_t kOwnMark = 0x5f10a7;

/// A source that the suite runs on.
struct Kind {
    std::string name;
    std::function<std::unique_ptr<capture::PacketSource>(boost::asio::io_context&, base::Timers&,
                                                         capture::SampleSink&, const capture::SourceOptions&)>
        make;
};
void PrintTo(const Kind& kind, std::ostream* out);
/// All of them.
std::vector<Kind> Kinds();

/// A sample with bytes of its own, and its number in the order of sampling.
struct SampledFrame {
    capture::Sample sample;
    support::Bytes header;
};

/// Keeps what was sampled.
class Record final : public capture::SampleSink {
public:
    void OnSamples(std::span<const capture::Sample> samples) noexcept override;
    void OnDrained() noexcept override { ++drained; }
    void OnRefused(std::uint32_t, const capture::Unavailable&) noexcept override { ++refused; }
    /// Frames sampled at the interface.
    [[nodiscard]] std::uint64_t Frames(std::uint32_t ifIndex) const;
    /// The numbers of the frames sampled there, in order.
    [[nodiscard]] std::vector<std::uint64_t> Numbers(std::uint32_t ifIndex) const;

    std::vector<SampledFrame> all;
    std::uint64_t drained = 0;
    std::uint64_t refused = 0;
    std::uint64_t batches = 0;
};

/// The number that support::UdpFrame put into an untagged IPv4 frame.
std::uint64_t NumberOf(const support::Bytes& header);

/// Puts frames on an interface as the socket of a process that marks its packets does.
class MarkedSender {
public:
    MarkedSender(const std::string& device, std::uint32_t mark);
    MarkedSender(const MarkedSender&) = delete;
    MarkedSender& operator=(const MarkedSender&) = delete;
    ~MarkedSender();
    void Send(const support::Bytes& frame) const;

private:
    int m_socket;
};

class SourceSuite : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Makes the source; where it is not to be had here the test is skipped (IsSkipped).
    void Make(std::size_t bufferSize = 0);
    /// Add and Change of the source; return when it samples as it was told.
    void Add(std::uint32_t ifIndex, const capture::Settings& settings);
    void Change(std::uint32_t ifIndex, const capture::Settings& settings);
    /// A cable; returns the index of its `near` end, where sampling takes place.
    static std::uint32_t Cable(const std::string& near, const std::string& far);

    /// Runs the loop until the condition holds; fails after 30 s.
    [[nodiscard]] bool Becomes(const std::function<bool()>& condition);
    /// Does what waits in the loop, and does not wait.
    void Turn();
    /// Runs the loop for so long: for what must not happen.
    void Run(std::chrono::milliseconds time);
    /// All that passed the filter so far has come: the record does not grow and the pool is as told.
    [[nodiscard]] bool Settles(std::uint32_t ifIndex, std::uint64_t pool);

    /// Sends numbered UDP frames into `device`, few at a time, and reads what is sampled meanwhile.
    void SendNumbered(const std::string& device, std::uint64_t first, std::uint64_t count,
                      std::size_t size = 100);
    boost::asio::io_context m_loop;
    std::unique_ptr<base::Timers> m_timers;
    std::optional<support::Network> m_network;
    Record m_record;
    std::unique_ptr<capture::PacketSource> m_source;

private:
    cpu_set_t m_allowed{};  // CPUs of this thread before the test
};

/// What was seen is this unlikely at most, else it is a fault: the suite's false-alarm probability for one
/// statement. There are fewer than a hundred statements of this kind.
inline constexpr double kFalseAlarm = 1e-9;

/// Whether `successes` of `trials` is possible with the probability: Chernoff's bound, which is
/// rigorous, both sides together at most kFalseAlarm.
testing::AssertionResult IsBinomial(std::uint64_t successes, std::uint64_t trials, double probability);

/// Whether these gaps (1: the very next) have the geometric distribution with the probability: Pearson's
/// chi-squared over bins of about equal probability, at kFalseAlarm.
testing::AssertionResult IsGeometric(const std::vector<std::uint64_t>& gaps, double probability);

}  // namespace source_suite

#endif
