// SPDX-License-Identifier: Apache-2.0
// Refusals that need more than a message: no room, no permission, no place. See error_tags_test.cpp for
// the others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>

#include "agent/agent_world.h"
#include "support/as_user.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::HasSubstr;

constexpr int kMaxRounds = 500;

std::string ManyCollectors(int round)
{
    std::string text;
    for (int i = 0; i < 100; ++i) text += Collector("c" + std::to_string(round) + "-" + std::to_string(i));
    return EditConfig(Sflow(text));
}

TEST(ResourceDenied, WhereTheStoreIsFull)
{
    World world({}, {}, std::size_t{1} << 18);
    auto client = std::make_unique<netconf::Client>(world.Connect());
    std::string running;
    netconf::Reply reply;
    reply.ok = true;
    for (int round = 0; round < kMaxRounds && reply.ok; ++round) {
        running = Config(*client, "running");
        Do(*client, ManyCollectors(round));
        reply = client->Call(netconf::Commit());
    }
    ASSERT_FALSE(reply.ok) << "the store never became full";
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_EQ(reply.errors[0].tag, "resource-denied") << reply.xml;
    EXPECT_EQ(reply.errors[0].type, "application") << reply.xml;
    EXPECT_THAT(reply.errors[0].message, HasSubstr("--map-size"));
    EXPECT_EQ(Config(*client, "running"), running);
    EXPECT_NE(Config(*client, "candidate"), running);
    Do(*client, netconf::DiscardChanges());
    EXPECT_EQ(Config(*client, "candidate"), running);
    client.reset();
    world.Restart();
    client = std::make_unique<netconf::Client>(world.Connect());
    EXPECT_EQ(Config(*client, "running"), running);
    EXPECT_EQ(Config(*client, "candidate"), running);
}

int ConnectedTo(const std::filesystem::path& socket)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = support::UnixAddress(socket);
    EXPECT_EQ(::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return descriptor;
}

/// All bytes that a client gets that sends nothing.
std::string AllBytesOf(const std::filesystem::path& socket)
{
    const int descriptor = ConnectedTo(socket);
    std::string all;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = ::read(descriptor, buffer.data(), buffer.size())) > 0;)
        all.append(buffer.data(), static_cast<std::size_t>(count));
    ::close(descriptor);
    return all;
}

TEST(ResourceDenied, ToASessionTooMany)
{
    agent::AgentOptions options;
    options.sessions.most = 1;
    World world(options);
    std::vector<netconf::Client> open;
    const std::size_t most = 1 + (::geteuid() == 0 ? agent::Sessions::kReservedForRoot : 0);
    for (std::size_t i = 0; i < most; ++i) open.push_back(world.Connect());
    const std::string refusal = AllBytesOf(world.NetconfSocket());
    EXPECT_THAT(refusal, HasSubstr("<error-tag>resource-denied</error-tag>"));
    EXPECT_THAT(refusal, HasSubstr("<error-type>protocol</error-type>"));
    EXPECT_THAT(refusal, HasSubstr("<error-severity>error</error-severity>"));
}

TEST(Backup, IsRefusedWithTheReason)
{
    World world;
    netconf::Client client = world.Connect();
    const std::string file = (world.NetconfSocket().parent_path() / "copy").string();
    Do(client, netconf::Backup(file));
    const auto typeOf = [&client](const std::string& place, const std::string& tag) {
        return Refused(client, netconf::Backup(place), tag).type;
    };
    EXPECT_EQ(typeOf(file, "data-exists"), "application");
    EXPECT_EQ(typeOf(file + "-directory/copy", "invalid-value"), "application");
    EXPECT_EQ(typeOf("copy", "invalid-value"), "protocol");
    EXPECT_EQ(typeOf("/sys/copy", "access-denied"), "application");  // where not even root makes files
}

TEST(AccessDenied, ToWhomTheRulesDenyAnOperation)
{
    if (::geteuid() != 0) GTEST_SKIP() << "becomes another user, which only root may";
    World world;
    ASSERT_EQ(::chmod(world.NetconfSocket().parent_path().c_str(), 0711), 0);
    ASSERT_EQ(::chmod(world.NetconfSocket().c_str(), 0666), 0);
    netconf::Client own = world.Connect();
    // In the loop: the agent, which is in this process, is to look at its own user afterwards only.
    int descriptor = -1;
    world.InLoop([&world, &descriptor] {
        const support::ActingAs acting({61'105, 61'105, {}});
        descriptor = ConnectedTo(world.NetconfSocket());
    });
    netconf::Client client(base::UniqueFd(descriptor), "another user");
    Do(own, EditConfig(Sflow(Collector("c1"))));
    const std::string candidate = Config(own, "candidate");
    for (const std::string& operation :
         {EditConfig(Sflow(Collector("c2"))), netconf::Commit(), netconf::DiscardChanges(),
          netconf::Lock("candidate"), netconf::KillSession(own.SessionId()), netconf::Backup("/tmp/copy")}) {
        const auto error = Refused(client, operation, "access-denied");
        EXPECT_EQ(error.type, "protocol") << operation;
        EXPECT_THAT(error.message, HasSubstr("may not execute"));
        EXPECT_EQ(Config(client, "candidate"), candidate) << operation;
        EXPECT_EQ(Config(client, "running"), "") << operation;
    }
}

}  // namespace
}  // namespace agent_tests
