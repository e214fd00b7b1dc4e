// SPDX-License-Identifier: Apache-2.0
// What is read of the configuration, from a real store.

#include "manager/status/configured.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/configured_store_fixture.h"
#include "manager/settings/configured_store.h"

namespace manager {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;

class Configuration : public ConfiguredStoreFixture {};

TEST_F(Configuration, IsReadAsFarAsItIsNeeded)
{
    const ConfiguredReader read(Store({{kCollector, {"c1"}},
                                       {kCollector, {"c2"}, {{{"enabled", false}}}},
                                       {kCollector, {"c3"}, {{{"enabled", true}}}},
                                       {kInterface, {"eth1"}, {{{"sampling-rate", std::uint32_t{512}}}}},
                                       {kFlow, {"eth1", "c1"}},
                                       {kFlow, {"eth1", "c2"}},
                                       {kCounter, {"eth1", "c3"}},
                                       {kInterface, {"eth10"}},
                                       {kFlow, {"eth10", "c1"}},
                                       {kInterface, {"eth2"}, {{{"max-header-size", std::uint16_t{64}}}}}}));
    EXPECT_TRUE(read.Collector("c1")->enabled);
    EXPECT_FALSE(read.Collector("c2")->enabled);
    EXPECT_TRUE(read.Collector("c3")->enabled);
    EXPECT_FALSE(read.Collector("c4"));
    auto eth1 = read.Interface("eth1");
    ASSERT_TRUE(eth1);
    EXPECT_TRUE(eth1->ownRate);
    EXPECT_THAT(eth1->Of(Kind::kFlow), IsEmpty());
    read.ReadCollectorsOf("eth1", *eth1);
    EXPECT_THAT(eth1->Of(Kind::kFlow), ElementsAre("c1", "c2"));
    EXPECT_THAT(eth1->Of(Kind::kCounter), ElementsAre("c3"));
    auto eth2 = read.Interface("eth2");
    ASSERT_TRUE(eth2);
    EXPECT_FALSE(eth2->ownRate);
    read.ReadCollectorsOf("eth2", *eth2);
    EXPECT_THAT(eth2->Of(Kind::kFlow), IsEmpty());
    EXPECT_FALSE(read.Interface("eth"));
}

TEST_F(Configuration, IsNamedInOrder)
{
    const ConfiguredReader read(Store(
        {{kCollector, {"c1"}}, {kInterface, {"eth1"}}, {kInterface, {"eth10"}}, {kInterface, {"eth2"}}}));
    EXPECT_THAT(read.Interfaces("", 100), ElementsAre(Key("eth1"), Key("eth10"), Key("eth2")));
    EXPECT_THAT(read.Interfaces("", 2), ElementsAre(Key("eth1"), Key("eth10")));
    EXPECT_THAT(read.Interfaces("eth1", 100), ElementsAre(Key("eth10"), Key("eth2")));
    EXPECT_THAT(read.Interfaces("eth11", 100), ElementsAre(Key("eth2"))) << "a name that is not there";
    EXPECT_THAT(read.Interfaces("eth2", 100), IsEmpty());
    EXPECT_THAT(read.Collectors("", 100), ElementsAre(Key("c1")));
    EXPECT_THAT(read.Collectors("", 0), IsEmpty());
}

TEST_F(Configuration, HasNoNamesOfAnyLength)
{
    const ConfiguredReader read(Store({{kInterface, {"z"}}}));
    const std::string name(100'000, 'x');
    EXPECT_FALSE(read.Interface(name));
    EXPECT_FALSE(read.Collector(name));
    EXPECT_THAT(read.Interfaces(name, 100), ElementsAre(Key("z")));
    EXPECT_THAT(read.Interfaces(std::string(100'000, 'z'), 100), IsEmpty());
}

TEST_F(Configuration, IsNotThereWithoutAStore)
{
    ConfiguredStore store;
    EXPECT_EQ(nullptr, store.Reader());
    store.Open((m_dir / "none").string());
    EXPECT_EQ(nullptr, store.Reader());
    EXPECT_THAT(store.Problem(), HasSubstr((m_dir / "none").string()));
    Store({{kInterface, {"eth1"}}});
    m_reader.reset();
    store.Open(m_dir.string());
    ASSERT_NE(nullptr, store.Reader());
    EXPECT_EQ("", store.Problem());
    EXPECT_TRUE(ConfiguredReader(*store.Reader()).Interface("eth1"));
    store.Open(m_dir.string());  // again, as with a new connection
    ASSERT_NE(nullptr, store.Reader());
}

}  // namespace
}  // namespace manager
