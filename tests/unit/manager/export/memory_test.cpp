// SPDX-License-Identifier: Apache-2.0
// What many collectors cost, idle and busy.

#include <malloc.h>
#include <sys/resource.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "manager/export/stream_pool.h"
#include "manager/export/world.h"

namespace exporter_test {
namespace {

using manager::StreamPool;

constexpr int kCollectors = 4096;

/// Bytes that the process has taken and not given back.
std::size_t InUse()
{
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

bool MayOpen(rlim_t files)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, files);
    limit.rlim_max = std::max(limit.rlim_max, files);
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

TEST_F(ExporterTest, KeepsManyCollectorsInLittleMemory)
{
    if (!MayOpen(kCollectors + 100)) GTEST_SKIP() << "may not open that many files";
    const Collector collector("127.0.0.2", 6343);
    const std::size_t before = InUse();
    std::vector<Stream*> streams;
    for (int n = 0; n < kCollectors; ++n)
        streams.push_back(&Export().Set("collector-" + std::to_string(n), Settings("127.0.0.2", 6343, 1400)));
    const Bytes sample = MakeSample({1, Kind::kFlow}, 220);
    const std::size_t idle = InUse();
    EXPECT_LT(idle - before, std::size_t{kCollectors} * 1024);

    for (Stream* stream : streams) stream->Put(sample, Kind::kFlow);
    // A datagram of its own each.
    EXPECT_LT(InUse() - idle, std::size_t{kCollectors} * 2048);
    Export().Flush();
    EXPECT_LT(InUse() - idle, std::size_t{1024} * 1024);

    std::size_t most = 0;
    for (int n = 0; n < 100; ++n) {
        for (Stream* stream : streams) stream->Put(sample, Kind::kFlow);
        most = std::max(most, InUse());
    }
    EXPECT_LT(most - idle, std::size_t{12} * 1024 * 1024);
    Export().Flush();
    EXPECT_LT(InUse() - idle, std::size_t{4} * 1024 * 1024);
    for (const Stream* stream : streams) {
        EXPECT_EQ(stream->Status().flowSamples, 101U);
        EXPECT_EQ(stream->Status().errors, 0U);
    }
    m_exporter.reset();
    EXPECT_LT(InUse(), before + std::size_t{64} * 1024);
}

TEST(StreamPool, GivesABoundedNumberOfLargeBlocks)
{
    StreamPool pool;
    std::vector<StreamPool::Block> blocks;
    for (std::size_t n = 0; n < StreamPool::kMaxBatches; ++n) {
        blocks.push_back(pool.Batch());
        ASSERT_NE(blocks.back().bytes, nullptr);
        EXPECT_EQ(blocks.back().capacity, StreamPool::kBatch);
    }
    EXPECT_EQ(pool.Batch().bytes, nullptr);
    pool.Release(blocks.back());
    EXPECT_EQ(blocks.back().bytes, nullptr);
    EXPECT_EQ(blocks.back().capacity, 0U);
    pool.Release(blocks.back());
    blocks.back() = pool.Batch();
    EXPECT_NE(blocks.back().bytes, nullptr);
    EXPECT_EQ(pool.Batch().bytes, nullptr);
    for (StreamPool::Block& block : blocks) pool.Release(block);
    EXPECT_EQ(pool.Bytes(), 4 * StreamPool::kBatch);
}

TEST(StreamPool, GivesSmallBlocksThatAreLargeEnoughAndFreesMostOfThem)
{
    StreamPool pool;
    std::vector<StreamPool::Block> blocks;
    for (const std::size_t size : {1U, 200U, 511U, 512U, 513U, 1400U, 9000U, 65507U, 65536U}) {
        blocks.push_back(pool.Small(size));
        EXPECT_GE(blocks.back().capacity, size);
        EXPECT_LT(blocks.back().capacity, size + 512);
    }
    for (int n = 0; n < 1000; ++n) blocks.push_back(pool.Small(1400));
    EXPECT_GT(pool.Bytes(), 1000U * 1400);
    for (StreamPool::Block& block : blocks) pool.Release(block);
    EXPECT_LE(pool.Bytes(), 256U * 1024);
    EXPECT_GT(pool.Bytes(), 0U);
}

}  // namespace
}  // namespace exporter_test
