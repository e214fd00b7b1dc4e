// SPDX-License-Identifier: Apache-2.0
// More collectors than the process may open sockets for: those that found none say so and wait, the others
// know nothing of it.

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/world.h"
#include "support/few_files.h"

namespace exporter_test {
namespace {

using support::FewFiles;
using testing::ElementsAre;

constexpr const char* kNoFile =
    "connect to 127.0.0.2:6343: Too many open files (the process's limit of open files)";

TEST_F(ExporterTest, ACollectorThatFindsNoSocketSaysSoAndIsTriedAgain)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    Collector collector("127.0.0.2", 6343);
    std::vector<Stream*> streams;
    {
        const FewFiles few(3);
        for (int n = 0; n < 5; ++n)
            streams.push_back(&Export().Set("c" + std::to_string(n), Settings("127.0.0.2", 6343, 1400)));
        for (Stream* stream : streams) SendOne(*stream);
        for (std::size_t n = 0; n < 3; ++n) {
            EXPECT_EQ(streams[n]->Status().errors, 0U);
            EXPECT_EQ(streams[n]->Status().datagrams, 1U);
            EXPECT_TRUE(streams[n]->Status().sending);
        }
        for (std::size_t n = 3; n < 5; ++n) {
            EXPECT_EQ(streams[n]->Status().lastError.value(), EMFILE);
            EXPECT_EQ(streams[n]->Status().lastErrorText, kNoFile);
            EXPECT_EQ(streams[n]->Status().errors, 1U) << "tried once a second";
            EXPECT_EQ(streams[n]->Status().lostDatagrams, 1U);
            EXPECT_FALSE(streams[n]->Status().sending);
        }

        // One goes: who asks next has its socket.
        Export().Remove("c0");
        Advance(milliseconds(1000));
        for (std::size_t n = 1; n < 5; ++n) SendOne(*streams[n]);
        EXPECT_TRUE(streams[3]->Status().sending);
        EXPECT_EQ(streams[3]->Status().datagrams, 1U);
        EXPECT_EQ(streams[4]->Status().errors, 2U);
        EXPECT_EQ(streams[4]->Status().lostDatagrams, 2U);
    }
    Advance(milliseconds(1000));
    SendOne(*streams[4]);
    EXPECT_TRUE(streams[4]->Status().sending);
    // Of the first three one each, of two of them and the fourth another, and what the fifth did not lose.
    EXPECT_THAT(Sequences(collector.Take(7)), ElementsAre(1, 1, 1, 2, 2, 2, 3));
}

}  // namespace
}  // namespace exporter_test
