// SPDX-License-Identifier: Apache-2.0
// Roles of peers, by the user and groups that the kernel names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "base/user.h"
#include "ipc/peer.h"
#include "ipc/trust.h"
#include "ipc/user_quota.h"

namespace {

using ipc::PeerCredentials;
using ipc::Role;
using ipc::Trust;
using testing::HasSubstr;

constexpr std::uint32_t kGroup = 60'102;
constexpr std::uint32_t kSomebody = 60'105;
constexpr std::array kRoles{Role::kSubscribe, Role::kCallpoint, Role::kState, Role::kFaults, Role::kSession};

PeerCredentials Somebody(std::vector<std::uint32_t> groups = {})
{
    return {1234, kSomebody, kSomebody, std::move(groups)};
}

TEST(Trust, IsInRootTheOwnUserAndTheGroup)
{
    const Trust trust("cdbd", std::to_string(kGroup));
    for (const Role role : kRoles) {
        EXPECT_FALSE(trust.Refusal(role, {1, 0, 0, {}}));
        EXPECT_FALSE(trust.Refusal(role, {1, ::geteuid(), 7, {}}));
        EXPECT_FALSE(trust.Refusal(role, Somebody({5, kGroup})));
        EXPECT_FALSE(trust.Refusal(role, {1, kSomebody, kGroup, {}}));
        EXPECT_TRUE(trust.Refusal(role, Somebody({5})));
    }
}

TEST(Trust, WithoutTheGroupIsInRootAndTheOwnUser)
{
    const Trust trust("cdbd", "no-such-group-here");
    EXPECT_FALSE(trust.Refusal(Role::kSubscribe, {1, 0, 0, {}}));
    EXPECT_FALSE(trust.Refusal(Role::kSubscribe, {1, ::geteuid(), 7, {}}));
    const auto refusal = trust.Refusal(Role::kSubscribe, Somebody({kGroup}));
    ASSERT_TRUE(refusal);
    EXPECT_THAT(*refusal, HasSubstr("run it as " + base::UserName(::geteuid())));
}

TEST(Trust, RefusesWithRoleUserAndRemedy)
{
    const Trust trust("cdbd", std::to_string(kGroup));
    EXPECT_EQ(
        trust.Refusal(Role::kCallpoint, Somebody()),
        "the user uid-60105 may not register a callpoint; run it as a member of the group gid-60102, or "
        "start cdbd with --allow callpoint=uid-60105");
}

TEST(Trust, IsGivenRoleByRole)
{
    Trust trust("cdbd", std::to_string(kGroup));
    EXPECT_EQ(trust.Allow("callpoint=60105,@60199"), "");
    EXPECT_FALSE(trust.Refusal(Role::kCallpoint, Somebody()));
    EXPECT_FALSE(trust.Refusal(Role::kCallpoint, {1, 60'177, 60'199, {}}));
    // In the place of the group, for this role only.
    EXPECT_TRUE(trust.Refusal(Role::kCallpoint, {1, 60'177, kGroup, {}}));
    EXPECT_FALSE(trust.Refusal(Role::kSubscribe, {1, 60'177, kGroup, {}}));
    EXPECT_TRUE(trust.Refusal(Role::kSubscribe, Somebody()));
    EXPECT_FALSE(trust.Refusal(Role::kCallpoint, {1, 0, 0, {}}));
}

TEST(Trust, SaysWhatIsWrongWithAnAllowance)
{
    Trust trust("cdbd");
    EXPECT_THAT(trust.Allow("tea=root"), HasSubstr("subscribe, callpoint, state, faults, session"));
    EXPECT_THAT(trust.Allow("callpoint"), HasSubstr("\"callpoint\" is no ROLE=USER"));
    EXPECT_THAT(trust.Allow("callpoint=no-such-user"), HasSubstr("no user \"no-such-user\""));
    EXPECT_THAT(trust.Allow("callpoint=root,@no-such-group"), HasSubstr("no group \"no-such-group\""));
    EXPECT_THAT(trust.Allow("callpoint="), HasSubstr("no user \"\""));
    EXPECT_EQ(trust.Allow("callpoint=root,@root"), "");
}

TEST(Peer, IsWhoHasConnected)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const auto peer = ipc::PeerOf(ends[0]);
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->pid, ::getpid());
    EXPECT_EQ(peer->uid, ::geteuid());
    EXPECT_EQ(peer->gid, ::getegid());
    std::vector<gid_t> own(static_cast<std::size_t>(::getgroups(0, nullptr)));
    ::getgroups(static_cast<int>(own.size()), own.data());
    EXPECT_THAT(peer->groups, testing::UnorderedElementsAreArray(own));
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_FALSE(ipc::PeerOf(-1));
}

TEST(Names, OfUsersAndGroupsAreFoundBothWays)
{
    EXPECT_EQ(base::UserName(0), "root");
    EXPECT_EQ(base::GroupName(0), "root");
    EXPECT_EQ(base::UserName(60'105), "uid-60105");
    EXPECT_EQ(base::GroupName(60'105), "gid-60105");
    EXPECT_EQ(base::FindUser("root"), 0U);
    EXPECT_EQ(base::FindGroup("60105"), 60'105U);
    EXPECT_EQ(base::FindGroup("no-such-group-here"), std::nullopt);
    EXPECT_EQ(base::FindGroup(""), std::nullopt);
    EXPECT_EQ(base::FindUser("12x"), std::nullopt);
}

TEST(UserQuota, CountsEachUserButRoot)
{
    ipc::UserQuota quota(2);
    EXPECT_TRUE(quota.Take(7));
    EXPECT_TRUE(quota.Take(7));
    EXPECT_FALSE(quota.Take(7));
    EXPECT_TRUE(quota.Take(8));
    quota.GiveBack(7);
    EXPECT_TRUE(quota.Take(7));
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(quota.Take(0));
    quota.GiveBack(0);
    quota.GiveBack(9);
}

}  // namespace
