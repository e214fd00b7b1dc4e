// SPDX-License-Identifier: Apache-2.0
// The memory of routes, with a test that answers.

#include <chrono>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "net/routes/routes.h"

namespace net {
namespace {

using Kind = Destination::Kind;

Address NumberedAddress(std::uint32_t number)
{
    Address address;
    address.size = 4;
    for (int i = 3; i >= 0; --i, number >>= 8) address.bytes[static_cast<std::size_t>(i)] = number & 0xFF;
    return address;
}

class Answers final : public RouteQuestions {
public:
    std::optional<RouteAnswer> Ask(RouteFrom from, const Address& destination, const Address& source) override
    {
        ++asked;
        if (silent) return std::nullopt;
        RouteAnswer answer;
        answer.kind = kind;
        answer.bits = from.ifIndex == 0 ? 8 : 24;
        answer.ifIndex = 100u + destination.bytes[3];
        if (perSource && from.ifIndex != 0) answer.ifIndex += 1000u * source.bytes[3];
        answer.perSource = perSource;
        answer.nextHop = nextHop;
        return answer;
    }
    Kind kind = Kind::kInterface;
    Address nextHop;
    bool silent = false;
    bool perSource = false;
    int asked = 0;
};

class RoutesTest : public testing::Test {
protected:
    std::optional<Routes::Found> Find(std::uint32_t destination, std::uint32_t source = 1)
    {
        return routes.Find({7, 0}, NumberedAddress(destination), NumberedAddress(source));
    }
    std::chrono::steady_clock::time_point now{};
    Answers answers;
    Routes routes{answers, [this] { return now; }};
};

TEST_F(RoutesTest, AreAskedForOnce)
{
    const auto found = Find(9);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->kind, Kind::kInterface);
    EXPECT_EQ(found->ifIndex, 109U);
    EXPECT_EQ(found->route, (Destination::Route{{4, {}}, 8, 24}));
    EXPECT_EQ(answers.asked, 2) << "there and back";
    EXPECT_EQ(Find(9)->route, found->route);
    EXPECT_EQ(answers.asked, 2);
    ASSERT_TRUE(Find(9, 2));
    EXPECT_EQ(answers.asked, 3) << "the way to another source, no more";
    ASSERT_TRUE(routes.Find({8, 0}, NumberedAddress(9), NumberedAddress(1)));
    EXPECT_EQ(answers.asked, 4) << "from another interface";
}

TEST_F(RoutesTest, AreAskedForBySourceWhereThatMatters)
{
    answers.perSource = true;
    EXPECT_EQ(Find(9, 1)->ifIndex, 1109U);
    EXPECT_EQ(Find(9, 2)->ifIndex, 2109U);
    const int asked = answers.asked;
    EXPECT_EQ(Find(9, 1)->ifIndex, 1109U);
    EXPECT_EQ(Find(9, 2)->ifIndex, 2109U);
    EXPECT_EQ(answers.asked, asked);
}

TEST_F(RoutesTest, ADirectlyConnectedDestinationHasTheNextHopThatIsNoneOfItsFamily)
{
    EXPECT_EQ(Find(9)->route, (Destination::Route{{4, {}}, 8, 24}));
    Address six, from;
    six.size = from.size = 16;
    six.bytes[15] = 9;
    EXPECT_EQ(routes.Find({7, 0}, six, from)->route, (Destination::Route{{16, {}}, 8, 24}));
    answers.nextHop = NumberedAddress(5);
    EXPECT_EQ(Find(10)->route, (Destination::Route{NumberedAddress(5), 8, 24}));
    EXPECT_EQ(Find(9)->route, (Destination::Route{{4, {}}, 8, 24})) << "as remembered";
}

TEST_F(RoutesTest, AreForgottenAsAWhole)
{
    answers.kind = Kind::kLocal;
    ASSERT_TRUE(Find(9));
    ASSERT_TRUE(Find(10));
    EXPECT_EQ(answers.asked, 2) << "no way back is asked for what ends here";
    routes.Forget();
    answers.kind = Kind::kDiscarded;
    EXPECT_EQ(Find(9)->kind, Kind::kDiscarded);
    EXPECT_EQ(Find(10)->kind, Kind::kDiscarded);
    EXPECT_EQ(answers.asked, 4);
}

TEST_F(RoutesTest, SilenceIsNotRemembered)
{
    answers.silent = true;
    EXPECT_FALSE(Find(9));
    answers.silent = false;
    EXPECT_TRUE(Find(9));
}

TEST_F(RoutesTest, AFloodOfAddressesIsAskedAboutSlowly)
{
    answers.kind = Kind::kLocal;
    int found = 0;
    for (std::uint32_t i = 0; i < 10'000; ++i) found += Find(i).has_value() ? 1 : 0;
    EXPECT_EQ(found, Routes::kQuestions);
    EXPECT_EQ(answers.asked, Routes::kQuestions);
    EXPECT_TRUE(Find(5)) << "what is remembered costs no question";
    EXPECT_FALSE(Find(20'000));
    now += Routes::kWindow;
    EXPECT_TRUE(Find(20'000));
}

TEST_F(RoutesTest, NoMoreAreRememberedThanThereIsRoomFor)
{
    answers.kind = Kind::kLocal;
    const std::uint32_t many = 4 * Routes::kCapacity;
    for (std::uint32_t i = 0; i < many; ++i) {
        now += Routes::kWindow;
        ASSERT_TRUE(Find(i));
    }
    answers.asked = 0;
    answers.silent = true;
    std::size_t remembered = 0;
    for (std::uint32_t i = 0; i < many; ++i) {
        now += Routes::kWindow;
        remembered += Find(i).has_value() ? 1 : 0;
    }
    EXPECT_LE(remembered, Routes::kCapacity);
    EXPECT_GT(remembered, Routes::kCapacity / 2);
    answers.silent = false;
    EXPECT_TRUE(Find(many - 1));
}

}  // namespace
}  // namespace net
