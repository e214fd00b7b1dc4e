// SPDX-License-Identifier: Apache-2.0
// What is wrong with an edit, and how it is said.

#include <ostream>

#include "fixture.h"

namespace tests {
namespace {

using cdb::DefaultOperation;
using cdb::ErrorTag;

struct Row {
    const char* name;
    const char* inner;  // of <sflow>
    ErrorTag tag;
    const char* path;  // below .../sflow
    const char* message;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class EditErrors : public DatastoreTest, public ::testing::WithParamInterface<Row> {};

TEST_P(EditErrors, NameTheThingAndTheRemedy)
{
    const auto& row = GetParam();
    Apply(Sflow("<collector><name>c1</name><ip>192.0.2.1</ip></collector>"));
    const std::string before = Shown(CandidateTree().get());
    const auto error = TryEdit(Sflow(row.inner));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, row.tag);
    EXPECT_EQ(error->path, std::string("/switch-config:config/switch-oam-sflow:oam/sflow") + row.path);
    EXPECT_EQ(error->message, row.message);
    EXPECT_EQ(Shown(CandidateTree().get()), before);
}

constexpr Row kRows[] = {
    {"CreateOfAnEntryThatIsThere", "<collector nc:operation='create'><name>c1</name></collector>",
     ErrorTag::kDataExists, "/collector[name='c1']",
     "collector \"c1\" exists already; use merge or replace to change it"},
    {"CreateOfALeafThatIsThere",
     "<collector><name>c1</name><ip nc:operation='create'>192.0.2.1</ip></collector>", ErrorTag::kDataExists,
     "/collector[name='c1']/ip",
     "leaf \"ip\" of collector \"c1\" exists already; use merge or replace to change it"},
    {"DeleteOfAnEntryThatIsNotThere", "<collector nc:operation='delete'><name>c9</name></collector>",
     ErrorTag::kDataMissing, "/collector[name='c9']",
     "collector \"c9\" does not exist and can't be deleted; use remove where it may be missing"},
    {"DeleteOfALeafAtItsDefault", "<collector><name>c1</name><port nc:operation='delete'/></collector>",
     ErrorTag::kDataMissing, "/collector[name='c1']/port",
     "port does not exist and can't be deleted; use remove where it may be missing"},
    {"AnUnknownElement", "<collector><name>c1</name><colour>red</colour></collector>",
     ErrorTag::kUnknownElement, "/collector[name='c1']/colour",
     "collector \"c1\" has no element \"colour\"; known here: name, enabled, ip, datagram-size, port"},
    {"AnUnknownNamespace", "<agent><x xmlns='urn:other'/></agent>", ErrorTag::kUnknownNamespace, "/agent/x",
     "element \"x\" is in the namespace \"urn:other\", which no module here has; use a namespace that this "
     "server announces"},
    {"AMissingKey", "<interface><polling-interval>5</polling-interval></interface>",
     ErrorTag::kMissingElement, "/interface",
     "an entry of list \"interface\" needs its key \"name\"; add that element"},
    {"ABadKey", "<collector><name>a%b</name></collector>", ErrorTag::kInvalidValue, "/collector/name",
     "\"a%b\" can't be the key \"name\" of an entry of list \"collector\": a collector's name has no percent "
     "sign"},
    {"AValueOutOfRange", "<interface><name>e</name><max-header-size>9</max-header-size></interface>",
     ErrorTag::kInvalidValue, "/interface[name='e']/max-header-size",
     "\"9\" is no value for leaf \"max-header-size\" of interface \"e\": Unsatisfied range - value \"9\" is "
     "out of "
     "the allowed range; use a number from 16 to 512"},
    {"ATextForANumber", "<interface><name>e</name><max-header-size>many</max-header-size></interface>",
     ErrorTag::kInvalidValue, "/interface[name='e']/max-header-size",
     "\"many\" is no value for leaf \"max-header-size\" of interface \"e\": Invalid type uint16 value "
     "\"many\"; use "
     "a number from 16 to 512"},
    {"AnAddressThatIsNone", "<agent><ipv4>1.2.3</ipv4></agent>", ErrorTag::kInvalidValue, "/agent/ipv4",
     "\"1.2.3\" is no value for leaf \"ipv4\" of container \"agent\"; use an IPv4 address such as 192.0.2.1"},
    {"ALeafGivenTwice",
     "<interface><name>e</name><polling-interval>5</polling-interval>"
     "<polling-interval>6</polling-interval></interface>",
     ErrorTag::kBadElement, "/interface[name='e']/polling-interval",
     "leaf \"polling-interval\" of interface \"e\" is given twice; give it once"},
    {"AKeyGivenTwice", "<collector><name>c7</name><name>c8</name></collector>", ErrorTag::kBadElement,
     "/collector[name='c7'][name='c8']/name",
     "leaf \"name\" of collector \"c7\" is given twice; give it once"},
    {"DeletingAKey", "<collector><name nc:operation='delete'>c1</name></collector>", ErrorTag::kBadAttribute,
     "/collector[name='c1']/name",
     "leaf \"name\" of collector \"c1\" is a key and can't be deleted; put the operation on the entry"},
};

INSTANTIATE_TEST_SUITE_P(Table, EditErrors, ::testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

class OtherEditErrors : public DatastoreTest {};

TEST_F(OtherEditErrors, AnUnknownOperationOnAnOpaqueNode)
{
    const auto error = TryEdit(Sflow("<collector nc:operation='melt'/>"));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kBadAttribute);
    EXPECT_EQ(error->message, "there is no operation \"melt\"; use merge, replace, create, delete or remove");
    EXPECT_EQ(error->info,
              (decltype(error->info){{"bad-attribute", "operation"}, {"bad-element", "collector"}}));
}

TEST_F(OtherEditErrors, ANameThatIsNoneOfAnEnumeration)
{
    const auto error = TryEdit(
        "<config xmlns='urn:switch:yang:switch-config'><oam xmlns='urn:switch:yang:switch-oam-sflow'>"
        "<sflow-manager xmlns='urn:switch:yang:switch-oam-sflow-manager'><direction>up</direction>"
        "</sflow-manager></oam></config>");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kInvalidValue);
    EXPECT_EQ(error->message,
              "\"up\" is no value for leaf \"direction\" of container \"sflow-manager\": Invalid enumeration "
              "value \"up\"; use egress, ingress or both");
}

TEST_F(OtherEditErrors, AnUnknownTopLevelElement)
{
    const auto error = TryEdit("<nothing xmlns='urn:switch:yang:switch-config'/>");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kUnknownElement);
    EXPECT_EQ(error->message, "the configuration has no element \"nothing\"; known here: config");
}

TEST_F(OtherEditErrors, StateCanNotBeConfigured)
{
    const auto error = TryEdit("<state xmlns='urn:switch:yang:switch-state'/>");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kInvalidValue);
    EXPECT_EQ(error->message, "container \"state\" is state and can't be configured; leave it out");
}

TEST_F(OtherEditErrors, ACallpointsBadWriteNamesTheCallpoint)
{
    auto write = DefaultRate("eth1", 1);
    write.value = std::string("fast");
    const auto error =
        TryEdit(Sflow("<interface><name>eth1</name></interface>"), DefaultOperation::kMerge, {write});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kOperationFailed);
    EXPECT_NE(error->message.find("sflow-set-sampling-rate"), std::string::npos) << error->message;
    EXPECT_EQ(Shown(CandidateTree().get()), "");
}

}  // namespace
}  // namespace tests
