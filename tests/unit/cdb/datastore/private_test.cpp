// SPDX-License-Identifier: Apache-2.0
// Candidates of their own: each begins with one commit, and what others commit meanwhile is judged row by
// row.

#include <gmock/gmock.h>

#include <functional>

#include "cdb/datastore/rebase.h"
#include "cdb/datastore/tree_load.h"
#include "fixture.h"

namespace tests {
namespace {

using cdb::Datastore;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::string OneCollector(const std::string& name, int port = 7)
{
    return "<collector><name>" + name + "</name><ip>192.0.2.1</ip><port>" + std::to_string(port) +
           "</port></collector>";
}

std::string OneInterface(const std::string& name, const std::string& inner = "")
{
    return "<interface><name>" + name + "</name>" + inner + "</interface>";
}

std::string WithoutEntry(const std::string& element, const std::string& name)
{
    return "<" + element + " nc:operation='delete'><name>" + name + "</name></" + element + ">";
}

std::string FlowTo(const std::string& collector, const std::string& operation = "")
{
    return "<flow-sampling-collector" + operation + "><name>" + collector +
           "</name></flow-sampling-collector>";
}

const std::string kGoneAttribute = " nc:operation='delete'";

class PrivateCandidates : public DatastoreTest {
protected:
    PrivateCandidates()
    {
        Apply(Sflow(OneCollector("c1") + OneCollector("c2") + OneInterface("eth1", FlowTo("c1")) +
                    OneInterface("eth2")));
        m_own = datastore->Fork();
    }

    static void EditIn(Datastore& where, const std::string& inner)
    {
        const auto edit = ParseEdit(Sflow(inner));
        const auto error = where.Edit(edit.get(), cdb::DefaultOperation::kMerge, {});
        ASSERT_FALSE(error) << error->message;
    }
    void EditOwn(const std::string& inner) { EditIn(*m_own, inner); }
    /// A commit of another candidate.
    void Others(const std::string& inner, const std::string& user = "ann")
    {
        ASSERT_FALSE(datastore->Prepare(true));
        EditIn(*datastore, inner);
        const auto result = datastore->Commit({user, "test", "", 1});
        ASSERT_TRUE(result) << cdb::TextOf(result.error());
    }

    static std::string ShownIn(const Datastore& where)
    {
        return Shown(cdb::LoadTree(TheSchema(), *where.Candidate()).get());
    }
    std::string ShownRunning() const { return Shown(RunningTree().get()); }

    /// Commits the own candidate; returns the errors.
    std::vector<cdb::Error> CommitOwn()
    {
        const auto result = m_own->Commit({"bob", "test", "", 2});
        return result ? std::vector<cdb::Error>{} : result.error();
    }

    /// The commit is refused with one conflict, and nothing has changed: the candidate can be edited, and
    /// refused again.
    cdb::Error Conflict()
    {
        const std::string running = ShownRunning();
        const std::string candidate = ShownIn(*m_own);
        const auto last = store->LastCommit();
        const auto errors = CommitOwn();
        EXPECT_EQ(ShownRunning(), running);
        EXPECT_EQ(ShownIn(*m_own), candidate);
        EXPECT_EQ(store->LastCommit(), last);
        EXPECT_EQ(m_own->Validate(), errors);
        EXPECT_EQ(CommitOwn(), errors);
        if (errors.size() != 1) {
            ADD_FAILURE() << errors.size() << " errors: " << cdb::TextOf(errors);
            return {};
        }
        EXPECT_EQ(errors.front().appTag, "conflict");
        return errors.front();
    }

    /// Decides all conflicts for running, and commits what is left. Then nothing differs, also after a
    /// restart.
    void TakeRunning(std::size_t conflicts = 1)
    {
        const auto decided = m_own->Update(Datastore::OnConflict::kTakeRunning);
        ASSERT_TRUE(decided);
        EXPECT_THAT(*decided, SizeIs(conflicts));
        EXPECT_EQ(cdb::TextOf(CommitOwn()), "");
        const std::string running = ShownRunning();
        EXPECT_EQ(ShownIn(*m_own), running);
        m_own.reset();
        Open();
        EXPECT_EQ(ShownRunning(), running);
        EXPECT_EQ(ShownIn(*datastore), running);
    }

    std::unique_ptr<Datastore> m_own;
};

TEST_F(PrivateCandidates, BeginAsRunningAndAreSeenByNoOther)
{
    EXPECT_EQ(ShownIn(*m_own), ShownRunning());
    EXPECT_FALSE(m_own->Changed());
    EditOwn(OneInterface("eth3"));
    EXPECT_TRUE(m_own->Changed());
    EXPECT_FALSE(datastore->Changed());
    EXPECT_THAT(ShownIn(*datastore), Not(HasSubstr("eth3")));
    EXPECT_THAT(ShownIn(*datastore->Fork()), Not(HasSubstr("eth3")));
    EXPECT_THAT(ShownRunning(), Not(HasSubstr("eth3")));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_THAT(ShownRunning(), HasSubstr("eth3"));
}

TEST_F(PrivateCandidates, StayAsTheyBeganWhateverOthersCommit)
{
    const std::string before = ShownRunning();
    Others(OneCollector("c3") + WithoutEntry("interface", "eth1") + OneInterface("eth2", FlowTo("c3")) +
           "<agent><ipv4>192.0.2.9</ipv4></agent>");
    EXPECT_EQ(ShownIn(*m_own), before);
    EditOwn(OneInterface("eth1", "<polling-interval>5</polling-interval>"));
    EXPECT_THAT(ShownIn(*m_own), AllOf(HasSubstr("polling-interval 5"), Not(HasSubstr("192.0.2.9"))));
    // What differs is what the candidate has changed, not what others have.
    EXPECT_THAT(Lines(m_own->Changes()),
                ElementsAre("modified /config/oam/sflow/interface{eth1}",
                            "set /config/oam/sflow/interface{eth1}/polling-interval = 5"));
}

TEST_F(PrivateCandidates, AreCarriedOverToRunningAsItIs)
{
    EditOwn(OneInterface("eth2", "<polling-interval>5</polling-interval>") +
            OneInterface("eth1", FlowTo("c2")));
    Others(OneCollector("c3") + "<agent><ipv4>192.0.2.9</ipv4></agent>" + OneInterface("eth1", FlowTo("c3")));
    EXPECT_THAT(m_own->Validate(), IsEmpty());
    EXPECT_THAT(ShownIn(*m_own), Not(HasSubstr("c3")));  // validating has not moved it
    EXPECT_THAT(CommitOwn(), IsEmpty());
    const std::string running = ShownRunning();
    EXPECT_THAT(running, AllOf(HasSubstr("192.0.2.9"), HasSubstr("polling-interval 5")));
    EXPECT_THAT(running,
                AllOf(HasSubstr("flow-sampling-collector c1"), HasSubstr("flow-sampling-collector c2"),
                      HasSubstr("flow-sampling-collector c3")));
    EXPECT_EQ(ShownIn(*m_own), running);
    Open();
    EXPECT_EQ(ShownRunning(), running);
}

TEST_F(PrivateCandidates, ACommitOfOneLeavesTheOthersTheirChanges)
{
    const auto third = datastore->Fork();
    EditIn(*third, OneInterface("eth2", "<polling-interval>5</polling-interval>"));
    EditIn(*datastore, OneInterface("eth4"));
    EditOwn(OneInterface("eth3"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_THAT(ShownIn(*third), AllOf(HasSubstr("polling-interval 5"), Not(HasSubstr("eth3"))));
    // The shared candidate's edits stand too, and its commit does not undo this one.
    EXPECT_TRUE(datastore->Changed());
    EXPECT_EQ(Lines(Commit()), std::vector<std::string>{"created /config/oam/sflow/interface{eth4}"});
    EXPECT_THAT(ShownRunning(), AllOf(HasSubstr("eth3"), HasSubstr("eth4")));
}

TEST_F(PrivateCandidates, TheSharedOneFollowsRunningWhileItHasNoChanges)
{
    EditOwn(OneInterface("eth3") + "<agent><ipv4>192.0.2.9</ipv4></agent>");
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_FALSE(datastore->Prepare(true));
    EXPECT_EQ(ShownIn(*datastore), ShownRunning());
    // A private one does not, with changes or without.
    Others(OneInterface("eth5"));
    EXPECT_FALSE(m_own->Prepare(true));
    EXPECT_THAT(ShownIn(*m_own), Not(HasSubstr("eth5")));
}

TEST_F(PrivateCandidates, TheSameChangeByBothIsNone)
{
    const std::string same = OneInterface("eth2", "<polling-interval>5</polling-interval>") +
                             WithoutEntry("interface", "eth1") + OneInterface("eth3", FlowTo("c2"));
    EditOwn(same + OneCollector("c9"));
    Others(same);
    const auto result = m_own->Commit({"bob", "test", "", 2});
    ASSERT_TRUE(result);
    EXPECT_EQ(result->rows, 1U);
    EXPECT_THAT(Lines(result->changes), testing::Contains("created /config/oam/sflow/collector{c9}"));
    EditOwn(WithoutEntry("collector", "c9"));
    Others(WithoutEntry("collector", "c9"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_EQ(store->LastCommit(), 4U);
}

TEST_F(PrivateCandidates, ALeafThatBothHaveChangedIsInConflict)
{
    EditOwn(OneInterface("eth2", "<polling-interval>5</polling-interval>") + OneInterface("eth3"));
    Others(OneInterface("eth1", "<polling-interval>8</polling-interval>"));
    Others(OneInterface("eth2", "<polling-interval>6</polling-interval>"), "eve");
    Others(OneCollector("c3"));
    const auto error = Conflict();
    EXPECT_EQ(error.path,
              "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth2']/polling-interval");
    EXPECT_THAT(error.message, AllOf(HasSubstr("polling-interval"), HasSubstr("eth2"),
                                     HasSubstr("by eve in commit 3"), HasSubstr("update")));
    // One more edit and one more commit are judged in the same way.
    EditOwn(OneInterface("eth4"));
    EXPECT_THAT(Conflict().message, HasSubstr("eth2"));
    TakeRunning();
    EXPECT_THAT(ShownRunning(), AllOf(HasSubstr("polling-interval 6"), HasSubstr("eth3"), HasSubstr("eth4")));
}

TEST_F(PrivateCandidates, ACommitBetweenOpeningAndTheFirstEditCounts)
{
    Others(OneInterface("eth2", "<polling-interval>6</polling-interval>"));
    EditOwn(OneInterface("eth2", "<polling-interval>5</polling-interval>"));
    EXPECT_THAT(Conflict().path, HasSubstr("eth2"));
    // Changing it into the same is none.
    EditOwn(OneInterface("eth2", "<polling-interval>6</polling-interval>"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_EQ(store->LastCommit(), 2U);
}

TEST_F(PrivateCandidates, DifferentLeavesOfOneEntryAreAConflictOfTheEntry)
{
    EditOwn(OneInterface("eth2", "<polling-interval>5</polling-interval>"));
    Others(OneInterface("eth2", "<max-header-size>64</max-header-size>"));
    const auto error = Conflict();
    EXPECT_EQ(error.path, "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth2']");
    TakeRunning();
}

TEST_F(PrivateCandidates, AContainerThatBothHaveChangedIsInConflict)
{
    EditOwn("<agent><ipv4>192.0.2.8</ipv4></agent>");
    Others("<agent><ipv4>192.0.2.9</ipv4></agent>");
    EXPECT_EQ(Conflict().path, "/switch-config:config/switch-oam-sflow:oam/sflow/agent/ipv4");
    TakeRunning();
    EXPECT_THAT(ShownRunning(), HasSubstr("192.0.2.9"));
}

TEST_F(PrivateCandidates, AnEntryThatBothHaveMadeIsInConflictWhereItDiffers)
{
    EditOwn(OneInterface("eth3", "<polling-interval>5</polling-interval>" + FlowTo("c1")));
    Others(OneInterface("eth3", "<polling-interval>6</polling-interval>" + FlowTo("c2")));
    EXPECT_THAT(Conflict().path, HasSubstr("eth3"));
    TakeRunning();
    // What is below is rows of its own.
    EXPECT_THAT(ShownRunning(), AllOf(HasSubstr("polling-interval 6"), Not(HasSubstr("polling-interval 5"))));
}

TEST_F(PrivateCandidates, AnEntryDeletedHereAndChangedThereIsInConflict)
{
    for (const auto& theirs : {OneInterface("eth1", "<polling-interval>6</polling-interval>"),  // its leaf
                               OneInterface("eth1", FlowTo("c2"))}) {  // more below it
        m_own = datastore->Fork();
        EditOwn(WithoutEntry("interface", "eth1"));
        Others(theirs);
        const auto error = Conflict();
        EXPECT_EQ(error.path, "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']");
        EXPECT_THAT(error.message, AllOf(HasSubstr("by ann in commit"), HasSubstr("is deleted in this")));
    }
    EditOwn(OneInterface("eth5"));
    TakeRunning();
    EXPECT_THAT(ShownRunning(), AllOf(HasSubstr("flow-sampling-collector c1"), HasSubstr("eth5"),
                                      HasSubstr("flow-sampling-collector c2")));
}

TEST_F(PrivateCandidates, AnEntryDeletedHereOfWhichLessIsLeftIsDeleted)
{
    EditOwn(WithoutEntry("interface", "eth1"));
    Others(OneInterface("eth1", FlowTo("c1", kGoneAttribute)));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_THAT(ShownRunning(), Not(HasSubstr("eth1")));
}

TEST_F(PrivateCandidates, AnEntryDeletedThereAndChangedHereIsInConflict)
{
    for (const auto& mine : {OneInterface("eth1", "<polling-interval>6</polling-interval>"),
                             OneInterface("eth1", FlowTo("c2"))}) {
        m_own = datastore->Fork();
        EditOwn(mine + OneInterface("eth7"));
        Others(WithoutEntry("interface", "eth1"));
        const auto error = Conflict();
        EXPECT_EQ(error.path, "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']");
        EXPECT_THAT(error.message, AllOf(HasSubstr("was deleted by ann in commit"), HasSubstr("is changed")));
        ASSERT_TRUE(m_own->Update(Datastore::OnConflict::kTakeRunning));
        EXPECT_THAT(ShownIn(*m_own), AllOf(Not(HasSubstr("eth1")), HasSubstr("eth7")));
        Others(OneInterface("eth1", FlowTo("c1")));
    }
    // That it has been made again since, and as it was, is no conflict.
    m_own = datastore->Fork();
    EditOwn(OneInterface("eth1", "<polling-interval>6</polling-interval>"));
    Others(WithoutEntry("interface", "eth1"));
    Others(OneInterface("eth1", FlowTo("c1")));
    EXPECT_THAT(CommitOwn(), IsEmpty());
}

TEST_F(PrivateCandidates, WhatIsDeletedByBothWithAPartOnlyHereIsDeleted)
{
    EditOwn(OneInterface("eth1", FlowTo("c1", kGoneAttribute)));
    Others(WithoutEntry("interface", "eth1"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_THAT(ShownRunning(), Not(HasSubstr("eth1")));
    EXPECT_EQ(store->LastCommit(), 2U);
}

TEST_F(PrivateCandidates, ARowBelowContainersOfADeletedEntryIsFound)
{
    const auto mgmt = [](const std::string& inner, const std::string& attributes = "") {
        return Config("<interface xmlns='urn:switch:yang:switch-interfaces'><mgmt" + attributes +
                      "><name>m</name>" + inner + "</mgmt></interface>");
    };
    Apply(mgmt(""));
    m_own = datastore->Fork();
    const auto edit = ParseEdit(mgmt("", kGoneAttribute));
    ASSERT_FALSE(m_own->Edit(edit.get(), cdb::DefaultOperation::kMerge, {}));
    Apply(mgmt("<ipv4><address><ip>10.0.0.5/24</ip></address></ipv4>"));
    EXPECT_EQ(Conflict().path, "/switch-config:config/switch-interfaces:interface/mgmt[name='m']");
    TakeRunning();
    EXPECT_THAT(ShownRunning(), HasSubstr("10.0.0.5/24"));
}

TEST_F(PrivateCandidates, AReferenceToWhatOthersHaveDeletedIsNotValid)
{
    EditOwn(OneInterface("eth2", FlowTo("c2")));
    Others(WithoutEntry("collector", "c2"));
    const std::string candidate = ShownIn(*m_own);
    const auto errors = CommitOwn();
    ASSERT_THAT(errors, SizeIs(2));
    EXPECT_EQ(errors[0].appTag, "instance-required");
    EXPECT_THAT(errors[1].message, HasSubstr("others have committed since"));
    EXPECT_EQ(ShownIn(*m_own), candidate);
    ASSERT_TRUE(m_own->Update(Datastore::OnConflict::kRefuse));
    EXPECT_THAT(m_own->Validate(), SizeIs(1));
    EditOwn(OneCollector("c2"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
}

TEST_F(PrivateCandidates, WhatACallpointHasWrittenIsComparedLikeAnyValue)
{
    const auto make = [](Datastore& where, const std::vector<cdb::LeafWrite>& writes) {
        const auto edit = ParseEdit(Sflow(OneInterface("eth3")));
        ASSERT_FALSE(where.Edit(edit.get(), cdb::DefaultOperation::kMerge, writes));
    };
    make(*m_own, {DefaultRate("eth3", 1024)});
    ASSERT_FALSE(datastore->Prepare(true));
    make(*datastore, {DefaultRate("eth3", 1024)});
    Commit();
    EXPECT_THAT(CommitOwn(), IsEmpty());
    EXPECT_EQ(store->LastCommit(), 2U);

    Others(WithoutEntry("interface", "eth3"));
    m_own = datastore->Fork();
    make(*m_own, {DefaultRate("eth3", 1024)});
    ASSERT_FALSE(datastore->Prepare(true));
    make(*datastore, {DefaultRate("eth3", 512)});
    Commit();
    EXPECT_THAT(Conflict().path, HasSubstr("[name='eth3']/default-sampling-rate"));
}

TEST_F(PrivateCandidates, ConflictsAreToldUpToABoundWithHowManyMore)
{
    std::string mine;
    std::string theirs;
    for (int i = 0; i < 40; ++i) {
        mine += OneCollector("d" + std::to_string(i), 100);
        theirs += OneCollector("d" + std::to_string(i), 200);
    }
    EditOwn(mine);
    Others(theirs);
    const auto errors = CommitOwn();
    ASSERT_THAT(errors, SizeIs(cdb::kMaxConflicts + 1));
    EXPECT_THAT(errors.back().message, HasSubstr("8 more"));
    EXPECT_THAT(errors[31].message, HasSubstr("by ann in commit 2"));
    ASSERT_TRUE(m_own->Update(Datastore::OnConflict::kTakeRunning));
    EXPECT_FALSE(m_own->Changed());
}

TEST_F(PrivateCandidates, AnUpdateKeepsTheChangesAndTakesRunning)
{
    EditOwn(OneInterface("eth3"));
    Others(OneInterface("eth4"));
    const auto conflicts = m_own->Update(Datastore::OnConflict::kRefuse);
    ASSERT_TRUE(conflicts);
    EXPECT_THAT(*conflicts, IsEmpty());
    EXPECT_EQ(m_own->Base(), 2U);
    EXPECT_THAT(ShownIn(*m_own), AllOf(HasSubstr("eth3"), HasSubstr("eth4")));
    EXPECT_EQ(Lines(m_own->Changes()), std::vector<std::string>{"created /config/oam/sflow/interface{eth3}"});
    Others(OneCollector("c1", 9));
    EditOwn(OneCollector("c1", 10));
    const std::string before = ShownIn(*m_own);
    EXPECT_THAT(m_own->Update(Datastore::OnConflict::kRefuse).error(), SizeIs(1));
    EXPECT_EQ(ShownIn(*m_own), before);
    EXPECT_EQ(m_own->Base(), 2U);
}

TEST_F(PrivateCandidates, ADiscardBeginsAnewWithRunningAsItIs)
{
    EditOwn(OneCollector("c1", 10));
    Others(OneCollector("c1", 9));
    m_own->Discard();
    EXPECT_EQ(ShownIn(*m_own), ShownRunning());
    EditOwn(OneCollector("c1", 10));
    EXPECT_THAT(CommitOwn(), IsEmpty());
}

TEST_F(PrivateCandidates, ARollBackIsToACommitWhateverTheBase)
{
    const std::string first = ShownRunning();
    EditOwn(OneInterface("eth3"));
    Others(OneInterface("eth4"));
    ASSERT_THAT(m_own->RollBack({.commit = 1}), IsEmpty());
    EXPECT_EQ(ShownIn(*m_own), first);
    EXPECT_EQ(Lines(m_own->Changes()), std::vector<std::string>{"deleted /config/oam/sflow/interface{eth4}"});
    // One that fails leaves the base as it was, too.
    const auto other = datastore->Fork();
    Others(OneInterface("eth5"));
    EditIn(*other, OneInterface("eth6"));
    const auto denied = other->RollBack({.back = 1}, [](const auto&) { return cdb::Error{.message = "no"}; });
    ASSERT_THAT(denied, SizeIs(1));
    EXPECT_EQ(other->Base(), 2U);
    EXPECT_THAT(ShownIn(*other), AllOf(HasSubstr("eth6"), Not(HasSubstr("eth5"))));
}

TEST_F(PrivateCandidates, AreComparedWithAMoment)
{
    Others(OneInterface("eth4"));
    Others(WithoutEntry("interface", "eth2"));
    const auto compared = m_own->CompareWith({.back = 0});
    ASSERT_TRUE(compared);
    // Since the candidate began, eth4 has come and eth2 has gone.
    const auto has = [](cdb::RowView& rows, const std::string& name) {
        return rows.Get(TheSchema().Table().Find("/config/oam/sflow/interface"), std::vector{name}) !=
               nullptr;
    };
    EXPECT_TRUE(has(*compared->before, "eth4"));
    EXPECT_FALSE(has(*compared->before, "eth2"));
    EXPECT_FALSE(has(*compared->after, "eth4"));
    EXPECT_TRUE(has(*compared->after, "eth2"));
    std::vector<std::string> listed;
    compared->after->ForEach(TheSchema().Table().Find("/config/oam/sflow/interface"), {},
                             [&](std::span<const std::string_view> keys, const cdb::Row&) {
                                 listed.emplace_back(keys.front());
                                 return true;
                             });
    EXPECT_THAT(listed, ElementsAre("eth2"));
}

TEST_F(PrivateCandidates, ABaseThatIsNotKeptIsSaidAndDiscardingHelps)
{
    m_own.reset();
    cdb::StoreOptions options;
    options.historyLimit = 2;
    Open(options);
    m_own = datastore->Fork();
    EditOwn(OneInterface("eth3"));
    Others(OneInterface("eth4"));
    Others(OneInterface("eth5"));
    EXPECT_FALSE(m_own->Prepare(true));
    const auto late = datastore->Fork();
    Others(OneInterface("eth6"));
    EXPECT_FALSE(late->Prepare(true));
    // What was learnt in time is known.
    EXPECT_FALSE(m_own->Prepare(true));
    Others(OneInterface("eth7"));
    Others(OneInterface("eth8"));
    Others(OneInterface("eth9"));
    const auto error = m_own->Prepare(true);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->message, AllOf(HasSubstr("began with commit 1"), HasSubstr("discard")));
    EXPECT_THAT(CommitOwn(), SizeIs(1));
    EXPECT_THAT(m_own->Validate(), SizeIs(1));
    EXPECT_FALSE(m_own->Update(Datastore::OnConflict::kTakeRunning));
    m_own->Discard();
    EXPECT_FALSE(m_own->Prepare(true));
    EXPECT_EQ(ShownIn(*m_own), ShownRunning());
}

TEST_F(PrivateCandidates, WhatManyCommitsOfOthersHaveChangedIsReadAgainWhereItIsNotKept)
{
    // The bound is on all of them together; below 1000 rows each keeps what it has.
    m_own.reset();
    datastore = std::make_unique<Datastore>(TheSchema(), *store, 2000);
    m_own = datastore->Fork();
    auto second = datastore->Fork();
    const std::string before = ShownIn(*m_own);
    EditOwn(OneInterface("p7", "<polling-interval>5</polling-interval>"));
    std::string many;
    for (int i = 0; i < 1500; ++i) many += OneInterface("p" + std::to_string(i));
    Others(many);
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(ShownIn(*m_own), Not(HasSubstr("p1499")));
        EXPECT_EQ(ShownIn(*second), before);
    }
    EXPECT_THAT(Conflict().path, HasSubstr("p7"));
    m_own.reset();
    EXPECT_EQ(ShownIn(*second), before);
    second.reset();
    m_own = datastore->Fork();
    EXPECT_THAT(ShownIn(*m_own), HasSubstr("p1499"));
    EditOwn(OneInterface("p7", "<polling-interval>5</polling-interval>"));
    EXPECT_THAT(CommitOwn(), IsEmpty());
}

TEST_F(PrivateCandidates, KeepABoundedNumberOfRowsTogether)
{
    const auto kept = std::make_shared<cdb::KeptRows>();
    kept->most = 2000;
    std::string many;
    for (int i = 0; i < 1500; ++i) many += OneInterface("p" + std::to_string(i));
    const cdb::Candidate second(TheSchema(), *store, kept);
    {
        const cdb::Candidate first(TheSchema(), *store, kept);
        Others(many);
        for (const auto* each : {&first, &second, &first}) {
            const cdb::Candidate::Reading reading(*each);
            EXPECT_EQ(each->Since().size(), 1500U);
        }
        EXPECT_EQ(kept->now, 1500U);  // of the first one
    }
    EXPECT_EQ(kept->now, 0U);
    {
        const cdb::Candidate::Reading reading(second);
    }
    EXPECT_EQ(kept->now, 1500U);
    Others(OneInterface("p0", "<polling-interval>5</polling-interval>") + OneInterface("p1500"));
    {
        const cdb::Candidate::Reading reading(second);
    }
    EXPECT_EQ(kept->now, 1501U);
}

}  // namespace
}  // namespace tests
