// SPDX-License-Identifier: Apache-2.0
// The default sampling rate of a new interface.

#include <qxmw/qxmw.h>

#include "support.h"

namespace daemon_tests {
namespace {

constexpr char kSource[] = "src/daemon/sflow_set_default";

class SetDefaultTest : public DaemonTest {
protected:
    SetDefaultTest() : category(qxmw_trace_init(nullptr, "test")), handler(category)
    {
        platform.openTransactions = {42};
        daemonContext.d_opaque = static_cast<QxConfdInterface*>(&platform.confd);
        transaction.dx = &daemonContext;
        transaction.thandle = 42;
        ForgetRecords();
    }
    qxconfd::DataHandler::Callpoint& Callpoint() { return *handler.GetCallpoints().at(0); }
    static std::string Entry(const std::string& name) { return "/config/oam/sflow/interface{" + name + "}"; }
    int Create(const std::string& name)
    {
        Keypath keypath(Entry(name));
        return Callpoint().CreateCallback(&transaction, keypath.Get());
    }
    static LogLine CallpointLine(int level, const std::string& function, const std::string& text)
    {
        return {level, function, text, kSource};
    }

    zlog_category_t* category;
    SFlowSetDefault handler;
    confd_daemon_ctx daemonContext{};
    confd_trans_ctx transaction{};
};

struct NameAndRate {
    const char* test;
    const char* name;
    std::uint32_t rate;
};

void PrintTo(const NameAndRate& row, std::ostream* out) { *out << row.name; }

class RateTest : public SetDefaultTest, public testing::WithParamInterface<NameAndRate> {};

TEST_P(RateTest, IsWrittenIntoTheSameTransaction)
{
    EXPECT_EQ(Create(GetParam().name), CONFD_OK);
    const std::string leaf = Entry(GetParam().name) + "/default-sampling-rate";
    EXPECT_THAT(platform.writes, ElementsAre(fakes::Write{fakes::Confd::kMaapiSocket, 42, leaf,
                                                          fakes::Value(GetParam().rate)}));
}

INSTANTIATE_TEST_SUITE_P(
    Names, RateTest,
    testing::Values(NameAndRate{"one_gigabit", "gigabit-ethernet-1/1/1", 8192},
                    NameAndRate{"ten_gigabit", "ten-gigabit-ethernet-1/1/2", 20480},
                    NameAndRate{"twenty_five_gigabit", "twenty-five-g-ethernet-1/1/3", 51200},
                    NameAndRate{"forty_gigabit", "forty-gigabit-ethernet-1/1/4", 81920},
                    NameAndRate{"hundred_gigabit", "hundred-gigabit-ethernet-1/1/5", 204800},
                    NameAndRate{"exactly_the_type", "forty-gigabit-ethernet", 81920},
                    NameAndRate{"leading_part_only", "gigabit", 4096},
                    NameAndRate{"other_case", "Gigabit-ethernet-1/1/1", 4096},
                    NameAndRate{"type_in_the_middle", "a-gigabit-ethernet-1", 4096},
                    NameAndRate{"management", "mgmt0", 4096}, NameAndRate{"aggregate", "lag-1", 4096},
                    NameAndRate{"empty", "", 4096},
                    NameAndRate{"percent_sign", "gigabit-ethernet-%s-%n", 8192}),
    [](const auto& row) { return row.param.test; });

TEST_F(SetDefaultTest, CreateLogsPathInterfaceAndRate)
{
    Create("lag-1");
    ExpectLogs({CallpointLine(10, "CreateCallback", "/config/oam/sflow/interface{lag-1}"),
                CallpointLine(10, "CreateCallback", "Check interface lag-1 type"),
                CallpointLine(11, "CreateCallback", "Interface lag-1: rate = 4096")});
    EXPECT_THAT(Journal({"kpath", "maapi"}),
                ElementsAre("kpath",
                            "maapi maapi_set_elem /config/oam/sflow/interface{lag-1}/default-sampling-rate"));
}

TEST_F(SetDefaultTest, CreateFormatsThePathWhateverTheLogLevel)
{
    platform.recorder.lowestLevel = 13;
    EXPECT_EQ(Create("lag-1"), CONFD_OK);
    ExpectLogs({});
    EXPECT_EQ(platform.writes.size(), 1U);
    EXPECT_THAT(Journal({"kpath"}), ElementsAre("kpath"));
}

TEST_F(SetDefaultTest, PathsAreFormattedInto8192ZeroedBytes)
{
    const std::string cut = Entry(std::string(9000, 'x')).substr(0, 8191);
    cdb.Return("maapi_set_elem", cut + "/default-sampling-rate", CONFD_OK, "");
    Keypath keypath(Entry(std::string(9000, 'x')));
    confd_value_t value{};
    DirtyStack();
    EXPECT_EQ(Callpoint().CreateCallback(&transaction, keypath.Get()), CONFD_OK);
    EXPECT_EQ(platform.recorder.logs.at(0), CallpointLine(10, "CreateCallback", cut));
    EXPECT_THAT(Journal({"maapi"}), ElementsAre("maapi maapi_set_elem " + cut + "/default-sampling-rate"));
    ForgetRecords();
    DirtyStack();
    Callpoint().SetElemCallback(&transaction, keypath.Get(), &value);
    DirtyStack();
    Callpoint().RemoveCallback(&transaction, keypath.Get());
    ExpectLogs({CallpointLine(10, "SetElemCallback", cut), CallpointLine(10, "RemoveCallback", cut)});
    EXPECT_EQ(platform.dirtyBuffers, 0);
}

TEST_F(SetDefaultTest, InterfaceNameEndsAtItsFirstNul)
{
    Keypath keypath(Entry("lag-1"));
    keypath.SetText(0, std::string("forty-gigabit-ethernet\0x", 24));
    Callpoint().CreateCallback(&transaction, keypath.Get());
    EXPECT_EQ(platform.recorder.logs.at(2).text, "Interface forty-gigabit-ethernet: rate = 81920");
}

TEST_F(SetDefaultTest, SetElemAndRemoveOnlyLog)
{
    Keypath keypath(Entry("eth1"));
    confd_value_t value{};
    EXPECT_EQ(Callpoint().SetElemCallback(&transaction, keypath.Get(), &value), CONFD_OK);
    ExpectLogs({CallpointLine(10, "SetElemCallback", "/config/oam/sflow/interface{eth1}")});
    EXPECT_EQ(Callpoint().RemoveCallback(&transaction, keypath.Get()), CONFD_OK);
    ExpectLogs({CallpointLine(10, "RemoveCallback", "/config/oam/sflow/interface{eth1}")});
    EXPECT_THAT(Journal({"maapi", "cdb", "service"}), IsEmpty());
}

TEST_F(SetDefaultTest, SetElemAndRemoveFormatNothingWhenStepsAreNotLogged)
{
    platform.recorder.lowestLevel = 11;
    Keypath keypath(Entry("eth1"));
    confd_value_t value{};
    EXPECT_EQ(Callpoint().SetElemCallback(&transaction, keypath.Get(), &value), CONFD_OK);
    EXPECT_EQ(Callpoint().RemoveCallback(&transaction, keypath.Get()), CONFD_OK);
    EXPECT_THAT(platform.recorder.journal, IsEmpty());
}

TEST_F(SetDefaultTest, HasOneCallpointOfItsName)
{
    ASSERT_EQ(handler.GetCallpoints().size(), 1U);
    EXPECT_EQ(handler.GetCallpoints()[0], &inside::SetRate(handler));
    EXPECT_EQ(&handler.GetCallpoints(), &inside::Callpoints(handler));
    EXPECT_STREQ(Callpoint().GetCallpointName(), "sflow-set-sampling-rate");
    EXPECT_EQ(inside::CallpointCategory(inside::SetRate(handler)), category);
}

TEST_F(SetDefaultTest, RegistersWritesAndTheAttachedTransaction)
{
    const auto& flags = handler.RegistrationFlags();
    EXPECT_FALSE(flags.reads);
    EXPECT_TRUE(flags.writes);
    EXPECT_FALSE(flags.counts);
    EXPECT_FALSE(flags.objects);
    EXPECT_FALSE(flags.finds);
    EXPECT_TRUE(flags.attachMaapi);
    EXPECT_FALSE(flags.writeAll);
}

TEST_F(SetDefaultTest, ConstructionAndQueriesAreSilent)
{
    handler.GetCallpoints();
    Callpoint().GetCallpointName();
    EXPECT_THAT(platform.recorder.journal, IsEmpty());
}

TEST_F(SetDefaultTest, OtherOperationsAreThePlatformsOwn)
{
    Keypath keypath(Entry("eth1"));
    confd_value_t value{};
    auto& callpoint = Callpoint();
    EXPECT_EQ(callpoint.ExistsOptionalCallback(&transaction, keypath.Get()), CONFD_ERR);
    EXPECT_EQ(callpoint.GetNextCallback(&transaction, keypath.Get(), -1), CONFD_ERR);
    EXPECT_EQ(callpoint.GetElemCallback(&transaction, keypath.Get()), CONFD_ERR);
    EXPECT_EQ(callpoint.NumInstancesCallback(&transaction, keypath.Get()), CONFD_ERR);
    EXPECT_EQ(callpoint.GetObjectCallback(&transaction, keypath.Get()), CONFD_ERR);
    EXPECT_EQ(callpoint.GetNextObjectCallback(&transaction, keypath.Get(), -1), CONFD_ERR);
    EXPECT_EQ(callpoint.FindNextObjectCallback(&transaction, keypath.Get(), CONFD_FIND_NEXT, &value, 1),
              CONFD_ERR);
    EXPECT_EQ(callpoint.WriteAllCallback(&transaction, keypath.Get()), CONFD_ERR);
    EXPECT_EQ(handler.TransactionInit(&transaction), CONFD_OK);
    EXPECT_EQ(handler.TransactionFinish(&transaction), CONFD_OK);
    EXPECT_THAT(platform.recorder.journal, IsEmpty());
}

TEST_F(SetDefaultTest, RefusedWriteEndsTheProcessWithTheReason)
{
    cdb.Return("maapi_set_elem", Entry("lag-1") + "/default-sampling-rate", CONFD_ERR, "read only");
    EXPECT_EXIT(
        {
            DumpJournalAtExit();
            Create("lag-1");
        },
        testing::ExitedWithCode(1),
        FaultReport(kSource, "CreateCallback", 1, "read only",
                    {"kpath", "log 10 CreateCallback: /config/oam/sflow/interface{lag-1}",
                     "log 10 CreateCallback: Check interface lag-1 type",
                     "log 11 CreateCallback: Interface lag-1: rate = 4096",
                     "maapi maapi_set_elem /config/oam/sflow/interface{lag-1}/default-sampling-rate"}));
}

TEST_F(SetDefaultTest, KeyThatIsNoStringFailsAnAssertion)
{
    Keypath keypath(Entry("eth1"));
    keypath->v[0][0].type = C_UINT32;
    EXPECT_EXIT(
        Callpoint().CreateCallback(&transaction, keypath.Get()), testing::KilledBySignal(SIGABRT),
        FailedAssertion("virtual int SFlowSetDefault::SetRateCallpoint::CreateCallback(confd_trans_ctx*, "
                        "confd_hkeypath_t*)",
                        "(&(keypath->v[0][0]))->type == C_BUF"));
}

}  // namespace
}  // namespace daemon_tests
