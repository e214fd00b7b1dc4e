// SPDX-License-Identifier: Apache-2.0
// An agent whose sockets have no place.

#include "agent/process/agent.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "agent/agent_world.h"
#include "support/manual_timers.h"

namespace {

TEST(Agent, NamesARunDirectoryThatCannotBeMade)
{
    const agent_tests::Directory directory;
    std::ofstream(directory.Path() / "file") << "not a directory\n";
    const std::filesystem::path wanted = directory.Path() / "file" / "run";

    boost::asio::io_context loop;
    support::ManualTimers timers;
    const auto store = cdb::Store::Open(directory.Path() / "store", {});
    cdb::Datastore datastore(agent_tests::Schema(), *store);
    agent::Access access(agent_tests::Schema().Context(), {{}, AGENT_TEST_YANG, {}});
    agent::AgentOptions options;
    options.runDirectory = wanted;
    options.timers = &timers;
    agent::Agent agent(loop, agent_tests::Schema(), *store, datastore, access, std::move(options));
    EXPECT_THAT([&] { agent.Listen(); },
                testing::ThrowsMessage<std::system_error>(
                    testing::StartsWith("can't make the directory " + wanted.string() + " for the sockets")));
}

}  // namespace
