// SPDX-License-Identifier: Apache-2.0
// A collector of the test that complains (see the header).

#include "samples/collector.h"

#include <gtest/gtest.h>

#include <exception>
#include <variant>
#include <vector>

#include "samples/agent.h"

namespace samples_tests {
namespace {

constexpr std::uint32_t kSampledHeader = 1, kExtendedSwitch = 1001, kExtendedRouter = 1002;

}  // namespace

Collector::~Collector()
{
    try {
        Judge();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

void Collector::Judge()
{
    std::uint32_t sequence = 0, uptime = 0;
    const auto& arrivals = Arrivals();
    for (std::size_t at = 0; at < arrivals.size(); ++at) {
        SCOPED_TRACE("datagram " + std::to_string(at + 1) + " of " + std::to_string(arrivals.size()));
        const support::Datagram& now = arrivals[at].datagram;
        EXPECT_LE(arrivals[at].bytes.size(), m_size);
        EXPECT_EQ(now.agent, kAgentAddress);
        EXPECT_FALSE(now.samples.empty()) << "a datagram that says nothing";
        if (m_mayRestartFrom && at >= *m_mayRestartFrom && now.sequence == 1) {
            m_mayRestartFrom.reset();
            m_sequences.clear();
        } else {
            EXPECT_EQ(now.sequence, sequence + 1);
        }
        EXPECT_GE(now.uptime, uptime);
        sequence = now.sequence;
        uptime = now.uptime;
        for (const auto& sample : now.samples) JudgeSample(sample);
    }
}

void Collector::JudgeSample(const support::DecodedSample& sample)
{
    if (const auto* flow = std::get_if<support::DecodedFlow>(&sample)) {
        JudgeSequence('f', flow->sourceIndex, flow->sequence);
        std::vector<std::uint32_t> records{kSampledHeader, kExtendedSwitch};
        if (flow->extendedRouter) records.push_back(kExtendedRouter);
        EXPECT_EQ(flow->records, records) << "records that every decoder knows come first";
        EXPECT_EQ(flow->sourceClass, 0U);
        return;
    }
    if (const auto* discard = std::get_if<support::DecodedDiscard>(&sample)) {
        JudgeSequence('d', discard->sourceIndex, discard->sequence);
        EXPECT_EQ(discard->sourceClass, 0U);
        return;
    }
    const auto& counters = std::get<support::DecodedCounters>(sample);
    JudgeSequence('c', counters.sourceIndex, counters.sequence);
    EXPECT_EQ(counters.sourceClass, 0U);
}

void Collector::JudgeSequence(char kind, std::uint32_t source, std::uint32_t sequence)
{
    auto& last = m_sequences[{kind, source}];
    if (last != 0) {
        EXPECT_EQ(sequence, last + 1) << "of interface " << source;
    }
    last = sequence;
}

}  // namespace samples_tests
