// SPDX-License-Identifier: Apache-2.0
// sflow-mgr as a process that was given few files: it takes what it needs, and lives without.

#include <sys/resource.h>

#include <cstdint>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/few_files.h"
#include "support/network.h"
#include "support/poll.h"
#include "support/sampling_world.h"

namespace {

using support::Await;
using support::SamplingWorld;
using testing::HasSubstr;
using testing::Not;

/// The collectors' host is this machine, where no program listens: what matters here is their sockets.
void AddCollectors(SamplingWorld& world, int count)
{
    for (int n = 0; n < count; ++n) world.Service().AddCollector("c" + std::to_string(n), "127.0.0.1", 6343);
    world.Service().Loaded();
}

TEST(FileLimit, IsRaisedForAsManyCollectorsAsThereCanBe)
{
    if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    constexpr int kCollectors = 4096;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < kCollectors + 256) GTEST_SKIP() << "only " << limit.rlim_max << " files may be open";
    SamplingWorld world({.before = {"prlimit", "--nofile=256:"}});
    AddCollectors(world, kCollectors);
    world.AwaitApplied();
    EXPECT_THAT(world.Log(), Not(HasSubstr("Too many open files")));
    const auto numbers = world.Numbers();
    std::uint64_t errors = 0;
    for (int n = 0; n < kCollectors; ++n)
        errors += numbers.OfCollector("c" + std::to_string(n), "errors_total");
    EXPECT_EQ(errors, 0U);
}

TEST(FileLimit, ThatCannotBeRaisedCostsSomeCollectorsTheirSocketsOnly)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    SamplingWorld world({.before = {"prlimit", "--nofile=64:64", "setpriv", "--bounding-set=-sys_resource"}});
    AddCollectors(world, 100);
    Await("the last collector to find no socket", [&] {
        return world.Log().find("collector c99: connect to 127.0.0.1:6343: Too many open files") !=
               std::string::npos;
    });
    // With fewer of them there are files for everybody again.
    for (int n = 0; n < 60; ++n) world.Service().DeleteCollector("c" + std::to_string(n));
    world.AwaitApplied();
    EXPECT_TRUE(world.Manager().Running());
    const auto numbers = world.Numbers();
    EXPECT_FALSE(numbers.Has("sflow_collector_errors_total{collector=\"c59\"}"));
    for (int n = 60; n < 100; ++n)
        EXPECT_EQ(numbers.OfCollector("c" + std::to_string(n), "errors_total"), 1U) << n;
    EXPECT_EQ(world.Manager().Terminate(), 0);
}

}  // namespace
