// SPDX-License-Identifier: Apache-2.0
// The client API's reads on a real store.

#include "platform/embedded/confd/convert.h"
#include "world.h"

namespace {

class ReadsTest : public World {
protected:
    ReadsTest()
    {
        const auto collector = Node(kCollector);
        const auto interface = Node(kInterface);
        const auto flow = Node(kInterface + "/flow-sampling-collector");
        Write({{{collector, {"c1"}},
                {{{"enabled", false}, {"ip", cdb::Ipv4{0x010200c0}}, {"port", std::uint16_t{9}}}}},
               {{collector, {"b"}}, {{{"ip", cdb::Ipv4{1}}}}},
               {{interface, {"eth10"}}, {{{"default-sampling-rate", std::uint32_t{8192}}}}},
               {{interface, {"eth2"}},
                {{{"sampling-rate", std::uint32_t{512}}, {"polling-interval", std::uint16_t{0}}}}},
               {{flow, {"eth10", "c1"}}, {}},
               {{flow, {"eth10", "b"}}, {}},
               {{Node("/config/interface/mgmt"), {"m1"}}, {}},
               {{Node("/config/interface/mgmt"), {"m0"}}, {}},
               {{Node("/config/interface/mgmt/ipv4/address"), {"m0"}},
                {{{"ip", cdb::Ipv4Plen{0x0500000a, 24}}}}}});
        Connect();
        m_session = std::make_unique<QxConfdCdbSessionBase>(*m_config.Confd(), CDB_RUNNING, true);
    }
    ~ReadsTest() override { m_session.reset(); }

    [[nodiscard]] int Socket() const { return m_session->Socket(); }

    /// The values as texts, released.
    static std::vector<std::string> Texts(std::vector<confd_value_t>& values)
    {
        std::vector<std::string> texts;
        for (auto& value : values) {
            texts.push_back(value.type == C_NOEXISTS ? "-" : cdb::ToText(embedded::FromConfd(value)));
            confd_free_value(&value);
        }
        return texts;
    }

    std::vector<std::string> Object(const std::string& path, int count = 5)
    {
        std::vector<confd_value_t> values(static_cast<std::size_t>(count));
        if (cdb_get_object(Socket(), values.data(), count, "%s", path.c_str()) == CONFD_ERR)
            return {confd_lasterr()};
        return Texts(values);
    }

    std::vector<std::string> Objects(const std::string& path, int perEntry, int first, int count)
    {
        std::vector<confd_value_t> values(static_cast<std::size_t>(perEntry * count));
        const int result =
            cdb_get_objects(Socket(), values.data(), perEntry, first, count, "%s", path.c_str());
        if (result == CONFD_ERR) return {confd_lasterr()};
        return Texts(values);
    }

    std::string Leaf(const std::string& path)
    {
        std::vector<confd_value_t> values(1);
        CONFD_SET_UINT32(&values[0], 77);
        if (cdb_get(Socket(), values.data(), "%s", path.c_str()) != CONFD_OK) {
            EXPECT_EQ(CONFD_GET_UINT32(values.data()), 77U);  // unchanged
            return confd_lasterr();
        }
        return Texts(values).at(0);
    }

    std::unique_ptr<QxConfdCdbSessionBase> m_session;
};

TEST_F(ReadsTest, CountsEntries)
{
    EXPECT_EQ(cdb_num_instances(Socket(), "%s", kCollector.c_str()), 2);
    EXPECT_EQ(cdb_num_instances(Socket(), "%s{%s}/flow-sampling-collector", kInterface.c_str(), "eth10"), 2);
    EXPECT_EQ(cdb_num_instances(Socket(), "%s{%s}/flow-sampling-collector", kInterface.c_str(), "eth2"), 0);
    EXPECT_EQ(cdb_num_instances(Socket(), "%s{%s}/counter-sampling-collector", kInterface.c_str(), "eth10"),
              0);
}

TEST_F(ReadsTest, ReadsEntriesInAscendingByteOrderWithDefaults)
{
    const std::vector<std::string> eth10 = {"eth10", "8192", "8192", "128", "20"};
    const std::vector<std::string> eth2 = {"eth2", "512", "4096", "128", "0"};
    std::vector<std::string> both = eth10;
    both.insert(both.end(), eth2.begin(), eth2.end());
    EXPECT_EQ(Objects(kInterface, 5, 0, 2), both);
    EXPECT_EQ(Objects(kInterface, 5, 1, 1), eth2);
    EXPECT_EQ(Objects(kCollector, 5, 0, 2),
              (std::vector<std::string>{"b", "true", "1.0.0.0", "1400", "6343", "c1", "false", "192.0.2.1",
                                        "1400", "9"}));
    EXPECT_EQ(Objects(kInterface + "{eth10}/flow-sampling-collector", 1, 0, 2),
              (std::vector<std::string>{"b", "c1"}));
}

TEST_F(ReadsTest, ReadsTheSameAfterCountingAndWithoutIt)
{
    const std::string list = kInterface + "{eth10}/flow-sampling-collector";
    const auto without = Objects(list, 2, 1, 1);
    EXPECT_EQ(cdb_num_instances(Socket(), "%s", list.c_str()), 2);
    EXPECT_EQ(Objects(list, 2, 1, 1), without);
    EXPECT_EQ(without, (std::vector<std::string>{"c1", "-"}));
    EXPECT_EQ(Objects(kInterface + "{eth2}/flow-sampling-collector", 1, 0, 0), std::vector<std::string>{});
}

TEST_F(ReadsTest, ReadsFewerOrMoreValuesThanAnEntryHas)
{
    EXPECT_EQ(Object(kCollector + "{c1}", 2), (std::vector<std::string>{"c1", "false"}));
    EXPECT_EQ(Object(kCollector + "{c1}", 7),
              (std::vector<std::string>{"c1", "false", "192.0.2.1", "1400", "9", "-", "-"}));
    std::vector<confd_value_t> values(1);
    EXPECT_EQ(cdb_get_object(Socket(), values.data(), 0, "%s{c1}", kCollector.c_str()), 5);
}

TEST_F(ReadsTest, ReadsContainers)
{
    EXPECT_EQ(Object("/config/interface/mgmt{m0}/ipv4/address", 1),
              (std::vector<std::string>{"10.0.0.5/24"}));
    EXPECT_EQ(Object("/config/oam/sflow/agent", 1), (std::vector<std::string>{"-"}));
    EXPECT_EQ(Object("/config/interface/mgmt[0]", 1), (std::vector<std::string>{"m0"}));
}

TEST_F(ReadsTest, ReadsLeaves)
{
    EXPECT_EQ(Leaf(kCollector + "{c1}/port"), "9");
    EXPECT_EQ(Leaf(kCollector + "{c1}/datagram-size"), "1400");
    EXPECT_EQ(Leaf(kCollector + "{c1}/name"), "c1");
    EXPECT_EQ(Leaf(kInterface + "{eth10}/sampling-rate"), "8192");
    EXPECT_EQ(Leaf("/config/interface/mgmt[0]/ipv4/address/ip"), "10.0.0.5/24");
}

TEST_F(ReadsTest, SaysThatWhatIsAbsentDoesNotExist)
{
    for (const std::string leaf :
         {"/config/oam/sflow/agent/ipv4", "/config/oam/sflow/collector{none}/port",
          "/config/interface/mgmt[1]/ipv4/address/ip", "/config/interface/mgmt[2]/ipv4/address/ip",
          "/config/interface/mgmt{none}/ipv4/address/ip"})
        EXPECT_NE(Leaf(leaf).find("does not exist"), std::string::npos) << leaf << ": " << confd_lasterr();
    EXPECT_EQ(Object(kCollector + "{none}"),
              (std::vector<std::string>{"\"" + kCollector + "{none}\" does not exist"}));
    EXPECT_EQ(Object("/config/interface/mgmt{none}/ipv4/address").size(), 1U);
    EXPECT_EQ(cdb_num_instances(Socket(), "%s{none}/flow-sampling-collector", kInterface.c_str()), CONFD_ERR);
}

TEST_F(ReadsTest, RefusesMoreEntriesThanThereAre)
{
    EXPECT_NE(Objects(kInterface, 5, 0, 3).at(0).find("has no 3 entries from 0 on"), std::string::npos);
    EXPECT_NE(Objects(kInterface, 5, 2, 1).at(0).find("has no 1 entries from 2 on"), std::string::npos);
}

TEST_F(ReadsTest, RefusesPathsThatItCannotServe)
{
    struct Row {
        const char* name;
        std::string path;
    };
    const Row rows[] = {{"empty", ""},
                        {"no slash", "config"},
                        {"unknown", "/config/oam/nonsense"},
                        {"open brace", kInterface + "{eth1"},
                        {"a list where an entry is wanted", kInterface},
                        {"a leaf below a list without key", kInterface + "/sampling-rate"},
                        {"a key on a leaf", "/config/oam/sflow/agent/ipv4{x}"},
                        {"a trailing slash", "/config/oam/sflow/"},
                        {"a bad index", kInterface + "[x]"},
                        {"too long", kInterface + "{" + std::string(9000, 'x') + "}"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Object(row.path).size(), 1U);
        EXPECT_STRNE(confd_lasterr(), "");
        std::vector<confd_value_t> values(1);
        EXPECT_EQ(cdb_get(Socket(), values.data(), "%s", row.path.c_str()), CONFD_ERR);
    }
    EXPECT_EQ(cdb_num_instances(Socket(), "%s{eth1}", kInterface.c_str()), CONFD_ERR);
    EXPECT_EQ(cdb_num_instances(Socket(), "/config/oam/sflow"), CONFD_ERR);
    EXPECT_EQ(cdb_num_instances(99, "%s", kInterface.c_str()), CONFD_ERR);
    EXPECT_STREQ(confd_lasterr(), "no read session has the socket 99");
}

TEST_F(ReadsTest, TakesKeysAsTheyAre)
{
    for (const std::string key : {"gigabit-ethernet-1/1/1", "a[0]", "100%d", "a b", "{"}) {
        SCOPED_TRACE(key);
        Write({{{Node(kInterface), {key}}, {{{"sampling-rate", std::uint32_t{99}}}}}});
        const QxConfdCdbSessionBase session(*m_config.Confd(), CDB_RUNNING, true);
        for (int repeated = 0; repeated < 2; ++repeated) {
            std::vector<confd_value_t> values(2);
            EXPECT_EQ(
                cdb_get_object(session.Socket(), values.data(), 2, "%s{%s}", kInterface.c_str(), key.c_str()),
                5)
                << confd_lasterr();
            EXPECT_EQ(Texts(values), (std::vector<std::string>{key, "99"}));
        }
    }
}

TEST_F(ReadsTest, SeesTheDatastoreAsOfItsOpening)
{
    Write({{{Node(kCollector), {"new"}}, {{{"ip", cdb::Ipv4{1}}}}}});
    EXPECT_EQ(cdb_num_instances(Socket(), "%s", kCollector.c_str()), 2);
    const QxConfdCdbSessionBase later(*m_config.Confd(), CDB_RUNNING, true);
    EXPECT_EQ(cdb_num_instances(later.Socket(), "%s", kCollector.c_str()), 3);
}

TEST_F(ReadsTest, CountsAndReadsLongLists)
{
    std::vector<std::pair<cdb::RowKey, cdb::Row>> rows;
    for (int i = 0; i < 300; ++i)
        rows.push_back({{Node(kCollector), {"n" + std::to_string(i)}}, {{{"ip", cdb::Ipv4{1}}}}});
    Write(rows);
    const QxConfdCdbSessionBase session(*m_config.Confd(), CDB_RUNNING, true);
    EXPECT_EQ(cdb_num_instances(session.Socket(), "%s", kCollector.c_str()), 302);
    std::vector<confd_value_t> values(302);
    EXPECT_EQ(cdb_get_objects(session.Socket(), values.data(), 1, 0, 302, "%s", kCollector.c_str()), 5);
    const auto names = Texts(values);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

}  // namespace
