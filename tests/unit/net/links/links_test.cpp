// SPDX-License-Identifier: Apache-2.0
// The table of links by itself.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "net/link_recorder.h"
#include "net/links/links.h"

namespace net {
namespace {

using testing::ElementsAre;
using testing::IsNull;

Link Named(std::uint32_t index, const std::string& name)
{
    Link link;
    link.index = index;
    link.name = name;
    return link;
}

std::uint32_t IndexOf(const Links& links, std::string_view name)
{
    const Link* found = links.Find(name);
    return found == nullptr ? 0 : found->index;
}

TEST(Links, AreFoundByIndex)
{
    Links links;
    links.Put(Named(3, "eth0"));
    ASSERT_THAT(links.Find(3U), testing::NotNull());
    EXPECT_EQ(links.Find(3U)->name, "eth0");
    EXPECT_THAT(links.Find(4U), IsNull());
}

TEST(Links, TheNameGoesBeforeTheAlternativeNameAndThatBeforeTheAlias)
{
    Links links;
    Link alias = Named(1, "a");
    alias.alias = "p";
    links.Put(alias);
    EXPECT_EQ(IndexOf(links, "p"), 1U);
    Link alternative = Named(2, "b");
    alternative.altNames = {"other", "p"};
    links.Put(alternative);
    EXPECT_EQ(IndexOf(links, "p"), 2U);
    links.Put(Named(3, "p"));
    EXPECT_EQ(IndexOf(links, "p"), 3U);
    links.Remove(3);
    links.Remove(2);
    EXPECT_EQ(IndexOf(links, "p"), 1U);
}

TEST(Links, OfSeveralWithOneAliasTheLowestIndexIsFound)
{
    Links links;
    for (const std::uint32_t index : {7U, 5U, 9U}) {
        Link link = Named(index, "l" + std::to_string(index));
        link.alias = "uplink";
        links.Put(link);
    }
    EXPECT_EQ(IndexOf(links, "uplink"), 5U);
    links.Remove(5);
    EXPECT_EQ(IndexOf(links, "uplink"), 7U);
}

TEST(Links, AreNotFoundByTheirFormerNames)
{
    Links links;
    Link link = Named(1, "before");
    link.altNames = {"alt-before"};
    link.alias = "alias before";
    links.Put(link);
    links.Put(Named(1, "after"));
    EXPECT_EQ(IndexOf(links, "before"), 0U);
    EXPECT_EQ(IndexOf(links, "alt-before"), 0U);
    EXPECT_EQ(IndexOf(links, "alias before"), 0U);
    EXPECT_EQ(IndexOf(links, "after"), 1U);
}

TEST(Links, WithoutANameAreNotFoundByTheEmptyOne)
{
    Links links;
    links.Put(Named(1, ""));
    EXPECT_THAT(links.Find(std::string_view{}), IsNull());
}

TEST(Links, ANameThatTwoHaveForAMomentIsFoundStillWhenOneGivesItUp)
{
    // Two renames in a row may be seen as one name on two links.
    Links links;
    links.Put(Named(1, "a"));
    links.Put(Named(2, "a"));
    links.Put(Named(1, "b"));
    EXPECT_EQ(IndexOf(links, "a"), 2U);
    EXPECT_EQ(IndexOf(links, "b"), 1U);
}

TEST(Links, ObserversHearOnlyWhatIsNew)
{
    Links links;
    LinkRecorder recorder;
    links.AddObserver(recorder);
    links.Put(Named(1, "a"));
    links.Put(Named(1, "a"));
    Link fast = Named(1, "a");
    fast.speed = 1'000'000'000;
    links.Put(fast);
    links.Remove(1);
    links.Remove(1);
    EXPECT_THAT(recorder.Taken(), ElementsAre("changed 1 a", "changed 1 a", "removed 1 a"));
}

TEST(Links, ObserversHearOnceTheTableHasTakenIt)
{
    class Looker final : public LinkObserver {
    public:
        explicit Looker(Links& links) : m_links(links) {}
        void LinkChanged(const Link& link) override { found.push_back(m_links.Find(link.name) != nullptr); }
        void LinkRemoved(const Link& link) override { found.push_back(m_links.Find(link.name) != nullptr); }
        std::vector<bool> found;

    private:
        Links& m_links;
    };
    Links links;
    Looker looker(links);
    links.AddObserver(looker);
    links.Put(Named(1, "a"));
    links.Remove(1);
    EXPECT_THAT(looker.found, ElementsAre(true, false));
}

TEST(Links, OfIndexZeroAreNone)
{
    Links links;
    links.Put(Named(0, "a"));
    EXPECT_TRUE(links.All().empty());
}

}  // namespace
}  // namespace net
