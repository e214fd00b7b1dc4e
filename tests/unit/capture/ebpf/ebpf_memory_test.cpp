// SPDX-License-Identifier: Apache-2.0
// How much of the ring is the process's memory: what samples lie in, and no more once they are taken.

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "capture/ebpf_world.h"

namespace {

constexpr std::size_t kLittle = 512 * 1024;

/// Bytes of maps of the kernel's programs that count as this process's memory.
std::size_t MappedOfPrograms()
{
    std::ifstream maps("/proc/self/smaps");
    std::size_t sum = 0;
    bool ofProgram = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.find('-') < line.find(' ')) ofProgram = line.find("bpf-map") != std::string::npos;
        if (!ofProgram || line.rfind("Rss:", 0) != 0) continue;
        std::size_t kilobytes = 0;
        std::istringstream(line.substr(4)) >> kilobytes;
        sum += kilobytes * 1024;
    }
    return sum;
}

class EbpfMemoryTest : public EbpfWorld {
protected:
    void StartWith(std::size_t ring)
    {
        Start({.bufferSize = ring});
        if (!IsSkipped()) Add(right, {.rate = 1, .headerSize = 512});
    }
};

TEST_F(EbpfMemoryTest, IsLittleWhileLittleComesHoweverLong)
{
    constexpr std::size_t kRing = 2 * kLittle;
    StartWith(kRing);
    if (IsSkipped()) return;
    EXPECT_LT(MappedOfPrograms(), kLittle);
    // Twice around the ring, far less than it a look.
    std::size_t all = 0;
    for (; all * 192 < 2 * kRing; all += 50) {
        Cross(50);
        source->Drain();
        ASSERT_EQ(sink.samples.size(), all + 50);
        ASSERT_LT(MappedOfPrograms(), kLittle) << all;
    }
    EXPECT_EQ(sink.samples.back().pool, all);
}

TEST_F(EbpfMemoryTest, GrowsWithWhatWaitsAndIsGivenBack)
{
    StartWith(8 * kLittle);
    if (IsSkipped()) return;
    Cross(6000);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 6000U);
    EXPECT_GT(MappedOfPrograms(), 2 * kLittle);
    Cross(1);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 6001U);
    EXPECT_LT(MappedOfPrograms(), kLittle);
    EXPECT_EQ(sink.samples.back().pool, 6001U);
    EXPECT_EQ(source->Read(right).drops, 0U);
}

}  // namespace
