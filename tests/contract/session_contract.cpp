// SPDX-License-Identifier: Apache-2.0
// Read sessions: what they see, and how long.

#include "contract/contract_suite.h"

namespace {

using testing::ElementsAre;

constexpr char kPath[] = "/config/oam/sflow/interface";

TEST_P(ContractTest, SessionSeesTheDatastoreAsOfItsOpening)
{
    ConfigureSFlow(R"("interface": [{"name": "old"}])");
    const auto before = Session();
    ConfigureSFlow(R"("interface": [{"name": "new1"}, {"name": "new2"}])");
    const auto after = Session();
    EXPECT_EQ(cdb_num_instances(before->Socket(), kPath), 1);
    EXPECT_THAT(Objects(before->Socket(), 1, 0, 1, kPath), ElementsAre("\"old\""));
    EXPECT_EQ(cdb_num_instances(after->Socket(), kPath), 2);
    EXPECT_THAT(Objects(after->Socket(), 1, 0, 2, kPath), ElementsAre("\"new1\"", "\"new2\""));
}

TEST_P(ContractTest, SessionsAreSeparate)
{
    ConfigureSFlow(R"("interface": [{"name": "eth1"}])");
    const auto one = Session();
    auto two = Session();
    EXPECT_NE(one->Socket(), two->Socket());
    two.reset();
    EXPECT_EQ(cdb_num_instances(one->Socket(), kPath), 1);
}

TEST_P(ContractTest, ReadsWithoutASessionFailWithAReason)
{
    ConfigureSFlow(R"("interface": [{"name": "eth1"}])");
    auto session = Session();
    const int closed = session->Socket();
    session.reset();
    confd_value_t values[5] = {};
    for (const int sock : {closed, -1, 99999}) {
        EXPECT_LT(cdb_num_instances(sock, kPath), 0) << sock;
        EXPECT_STRNE(confd_lasterr(), "");
        EXPECT_LT(cdb_get_objects(sock, values, 5, 0, 1, kPath), 0) << sock;
        EXPECT_LT(cdb_get_object(sock, values, 5, "%s{eth1}", kPath), 0) << sock;
        EXPECT_EQ(cdb_get(sock, values, "%s{eth1}/sampling-rate", kPath), CONFD_ERR) << sock;
    }
}

TEST_P(ContractTest, ConnectionIsUp)
{
    ConfigureSFlow("");
    EXPECT_TRUE(platform->Confd().IsConnected());
}

}  // namespace
