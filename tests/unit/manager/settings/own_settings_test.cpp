// SPDX-License-Identifier: Apache-2.0
// The manager's own settings: defaults, what an update changes, and who is told of it.

#include "manager/settings/own_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/recorder.h"

namespace manager {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// "sub-agent direction discards c1 c2"
std::string TextOf(const OwnChange& change)
{
    std::string text;
    const auto add = [&text](const std::string& word) { text += (text.empty() ? "" : " ") + word; };
    if (change.subAgent) add("sub-agent");
    if (change.direction) add("direction");
    if (change.discards) add("discards");
    for (const std::string& name : change.collectors) add(name);
    return text;
}

OwnCollector Marked(std::uint8_t dscp) { return {.send = {.dscp = dscp}}; }

class Own : public testing::Test {
protected:
    void Observe(OwnSettings& settings)
    {
        settings.WhenChanged([this](const OwnChange& change) { m_changes.push_back(TextOf(change)); });
    }
    Texts Changes() { return std::exchange(m_changes, {}); }
    Texts m_changes;
};

TEST_F(Own, HaveDefaultsBeforeAnythingWasRead)
{
    const OwnSettings settings;
    EXPECT_EQ(0U, settings.SubAgent());
    EXPECT_EQ(std::nullopt, settings.AddedDirection());
    EXPECT_EQ(100U, settings.DiscardLimit());
    EXPECT_EQ(OwnCollector(), settings.Of("c1"));
    EXPECT_THAT(settings.AllCollectors(), IsEmpty());
}

TEST_F(Own, TellWhatAnUpdateHasChangedAndNothingElse)
{
    OwnSettings settings;
    Observe(settings);
    settings.Update({.general = OwnGeneral{.subAgent = 3}, .collectors = {{"c1", Marked(46)}}});
    EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    settings.Update({.general = OwnGeneral{.subAgent = 3}, .collectors = {{"c1", Marked(46)}}});
    EXPECT_THAT(Changes(), IsEmpty()) << "twice the same";
    settings.Update({.collectors = {{"c2", Marked(8)}, {"c3", std::nullopt}}});
    EXPECT_THAT(Changes(), ElementsAre("c2")) << "the others stay";
    EXPECT_EQ(3U, settings.SubAgent());
    EXPECT_EQ(Marked(46), settings.Of("c1"));
    settings.Update({.general = OwnGeneral{.subAgent = 3, .discardLimit = 0}});
    EXPECT_THAT(Changes(), ElementsAre("discards"));
    EXPECT_EQ(0U, settings.DiscardLimit());
    EXPECT_FALSE(settings.DiscardsEverywhere());
    settings.Update({.general = OwnGeneral{.subAgent = 3, .discardLimit = 0, .discardsEverywhere = true}});
    EXPECT_THAT(Changes(), ElementsAre("discards"));
    EXPECT_TRUE(settings.DiscardsEverywhere());
    settings.Update({.collectors = {{"c2", OwnCollector{.send = {.dscp = 8}, .discards = true}}}});
    EXPECT_THAT(Changes(), ElementsAre("discards c2"));
    settings.Update({.collectors = {{"c1", std::nullopt}}});
    EXPECT_THAT(Changes(), ElementsAre("c1"));
    EXPECT_EQ(OwnCollector(), settings.Of("c1"));
}

TEST_F(Own, TellOfAnEntryOnlyIfItSaysAnything)
{
    OwnSettings settings;
    Observe(settings);
    settings.Update({.collectors = {{"c1", OwnCollector()}}});
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_TRUE(settings.AllCollectors().contains("c1"));
    settings.Update({.collectors = {{"c1", std::nullopt}}});
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_FALSE(settings.AllCollectors().contains("c1"));
}

TEST_F(Own, ForgetWhatAWholeUpdateDoesNotName)
{
    OwnSettings settings;
    settings.Update({.collectors = {{"a", Marked(1)}, {"c", Marked(1)}, {"e", Marked(1)}, {"g", Marked(1)}}});
    Observe(settings);
    settings.Update({.general = OwnGeneral(),
                     .collectors = {{"b", Marked(1)}, {"c", Marked(1)}, {"e", Marked(2)}},
                     .whole = true});
    EXPECT_THAT(Changes(), ElementsAre("a b e g"));
    EXPECT_THAT(settings.AllCollectors(),
                ElementsAre(testing::Key("b"), testing::Key("c"), testing::Key("e")));
    settings.Update({.general = OwnGeneral(), .whole = true});
    EXPECT_THAT(Changes(), ElementsAre("b c e"));
}

TEST_F(Own, HaveTheOptionsDirectionWhileNoneIsConfigured)
{
    OwnSettings settings(Direction::kEgress);
    Observe(settings);
    EXPECT_EQ(Direction::kEgress, settings.AddedDirection());
    settings.Update({.general = OwnGeneral{.direction = Direction::kEgress}});
    EXPECT_THAT(Changes(), IsEmpty()) << "it is the same";
    settings.Update({.general = OwnGeneral{.direction = Direction::kBoth}});
    EXPECT_THAT(Changes(), ElementsAre("direction"));
    EXPECT_EQ(Direction::kBoth, settings.AddedDirection());
    settings.Update({.general = OwnGeneral()});
    EXPECT_THAT(Changes(), ElementsAre("direction"));
    EXPECT_EQ(Direction::kEgress, settings.AddedDirection());
}

TEST_F(Own, TellAllWhoWantToKnow)
{
    OwnSettings settings;
    Observe(settings);
    Observe(settings);
    settings.Update({.collectors = {{"c1", Marked(1)}}});
    EXPECT_THAT(Changes(), ElementsAre("c1", "c1"));
}

}  // namespace
}  // namespace manager
