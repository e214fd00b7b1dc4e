// SPDX-License-Identifier: Apache-2.0
// What validation finds, and in which words.

#include "cdb/datastore/validate.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "fixture.h"

namespace tests {
namespace {

using cdb::ErrorTag;
using Strings = std::vector<std::string>;

class Validation : public DatastoreTest {
protected:
    Strings Messages()
    {
        Strings texts;
        for (const auto& error : datastore->Validate()) texts.push_back(error.message);
        return texts;
    }
};

TEST_F(Validation, AReferenceToNothing)
{
    Edit(
        Sflow("<interface><name>eth1</name>"
              "<flow-sampling-collector><name>c9</name></flow-sampling-collector></interface>"));
    const auto errors = datastore->Validate();
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].tag, ErrorTag::kDataMissing);
    EXPECT_EQ(errors[0].appTag, "instance-required");
    EXPECT_EQ(errors[0].path,
              "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']/"
              "flow-sampling-collector[name='c9']/name");
    EXPECT_EQ(
        errors[0].message,
        "there is no collector \"c9\", which interface \"eth1\" refers to as its flow-sampling-collector; "
        "create it or take the reference out");
}

TEST_F(Validation, AMandatoryLeafThatIsMissing)
{
    Edit(Sflow("<collector><name>c1</name></collector>"));
    const auto errors = datastore->Validate();
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].tag, ErrorTag::kMissingElement);
    EXPECT_EQ(errors[0].path, "/switch-config:config/switch-oam-sflow:oam/sflow/collector[name='c1']");
    EXPECT_EQ(errors[0].message, "collector \"c1\" needs \"ip\"; set it");
    EXPECT_EQ(errors[0].info, (decltype(errors[0].info){{"bad-element", "ip"}}));
}

TEST_F(Validation, AReferencedEntryThatGoes)
{
    Apply(
        Sflow("<collector><name>c1</name><ip>192.0.2.1</ip></collector>"
              "<interface><name>eth1</name><flow-sampling-collector><name>c1</name></flow-sampling-collector>"
              "</interface><interface><name>eth2</name></interface><interface><name>eth3</name>"
              "<counter-sampling-collector><name>c1</name></counter-sampling-collector></interface>"));
    Edit(Sflow("<collector nc:operation='delete'><name>c1</name></collector>"));
    const std::string start = "there is no collector \"c1\", which interface \"";
    const std::string end = "-sampling-collector; create it or take the reference out";
    EXPECT_EQ(Messages(), (Strings{start + "eth1\" refers to as its flow" + end,
                                   start + "eth3\" refers to as its counter" + end}));
    Edit(Sflow("<collector><name>c1</name><ip>192.0.2.3</ip></collector>"));
    EXPECT_EQ(Messages(), Strings{});
    Edit(Config("", "nc:operation='remove'"));
    EXPECT_EQ(Messages(), Strings{});
}

TEST_F(Validation, SeveralErrorsAtOnceButNotAll)
{
    std::string many;
    for (int i = 0; i < 50; ++i) many += "<collector><name>c" + std::to_string(i) + "</name></collector>";
    Edit(Sflow(many));
    EXPECT_EQ(datastore->Validate().size(), cdb::Validator::kMaxErrors);
}

TEST_F(Validation, AnErrorOfTheWholeIsNotOneTooMany)
{
    const TempDirectory modules;
    for (const auto& file : std::filesystem::directory_iterator(SFLOW_TEST_YANG_DIR)) {
        std::ifstream in(file.path());
        std::string text{std::istreambuf_iterator<char>(in), {}};
        const std::string list = "list collector {";
        if (file.path().filename() == "switch-oam-sflow.yang")
            text.replace(text.find(list), list.size(), list + " max-elements 2;");
        std::ofstream(modules.Path() / file.path().filename()) << text;
    }
    const auto schema = cdb::Schema::Load(modules.Path());
    ASSERT_TRUE(schema->Constraints().EverythingAlways());
    const TempDirectory place;
    const auto ownStore = cdb::Store::Open(place.Path() / "store");
    cdb::Datastore own(*schema, *ownStore);
    std::string many;
    for (const int upTo : {20, 21}) {
        while (std::count(many.begin(), many.end(), '/') < 2 * upTo)
            many += "<collector><name>c" + std::to_string(many.size()) + "</name></collector>";
        const auto edit = ParseEdit(Sflow(many), *schema);
        ASSERT_FALSE(own.Edit(edit.get(), cdb::DefaultOperation::kMerge, {}));
        const auto errors = own.Validate();
        ASSERT_EQ(errors.size(), cdb::Validator::kMaxErrors) << upTo;
        EXPECT_EQ(errors[0].appTag, "too-many-elements");
        EXPECT_EQ(errors[1].tag, ErrorTag::kMissingElement);
    }
}

TEST_F(Validation, AnInvalidCandidateIsNotCommitted)
{
    Edit(Sflow("<collector><name>c1</name></collector>"));
    const auto result = datastore->Commit({});
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(Shown(RunningTree().get()), "");
    EXPECT_TRUE(store->Empty());
    EXPECT_TRUE(datastore->Changed());
}

TEST_F(Validation, TheSchemasConstraintsStayWithinReach)
{
    const auto& reach = TheSchema().Constraints();
    EXPECT_FALSE(reach.EverythingAlways());
    Strings references;
    for (const auto& reference : reach.references)
        references.push_back(TheSchema().Table().PathOf(reference.leaf) + " to " +
                             TheSchema().Table().PathOf(reference.list));
    EXPECT_EQ(
        references,
        (Strings{
            "/config/oam/sflow/interface/flow-sampling-collector/name to /config/oam/sflow/collector",
            "/config/oam/sflow/interface/counter-sampling-collector/name to /config/oam/sflow/collector"}));
}

}  // namespace
}  // namespace tests
