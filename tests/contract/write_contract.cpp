// SPDX-License-Identifier: Apache-2.0
// Writes into the transaction of a create callback.

#include <confd_maapi.h>

#include "contract/contract_suite.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEntry[] = "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}";

// One write of a value to a leaf below the entry that is created, and the callback's result.
int WriteTo(confd_trans_ctx* transaction, const std::string& leaf, confd_value_t value)
{
    const auto* confd = static_cast<const QxConfdInterface*>(transaction->dx->d_opaque);
    return maapi_set_elem(confd->MaapiSocket(), transaction->thandle, &value, "%s", (kEntry + leaf).c_str());
}

confd_value_t Number(std::uint32_t number)
{
    confd_value_t value{};
    CONFD_SET_UINT32(&value, number);
    return value;
}

#define SKIP_WITHOUT_TRANSACTIONS \
    if (!platform->CanCreate()) GTEST_SKIP() << GetParam().name << " makes no transactions in this program"

TEST_P(ContractTest, WriteReachesTheTransactionOfItsCallback)
{
    SKIP_WITHOUT_TRANSACTIONS;
    ConfigureSFlow("");
    const auto created = platform->Create("gigabit-ethernet-1/1/1", [](auto* transaction, auto*) {
        return WriteTo(transaction, "/default-sampling-rate", Number(8192));
    });
    EXPECT_EQ(created.result, CONFD_OK);
    EXPECT_THAT(created.written, ElementsAre(std::string(kEntry) + "/default-sampling-rate = 8192"));
}

TEST_P(ContractTest, CallbackIsGivenTheKeypathOfTheCreatedEntry)
{
    SKIP_WITHOUT_TRANSACTIONS;
    ConfigureSFlow("");
    std::string printed;
    std::string key;
    platform->Create("gigabit-ethernet-1/1/1", [&](auto*, confd_hkeypath_t* keypath) {
        char text[8192];
        confd_pp_kpath(text, sizeof text, keypath);
        printed = text;
        key = reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&(keypath->v[0][0])));
        return CONFD_OK;
    });
    EXPECT_EQ(printed, kEntry);
    EXPECT_EQ(key, "gigabit-ethernet-1/1/1");
}

TEST_P(ContractTest, WriteIsCheckedAgainstTheSchemaAtOnce)
{
    SKIP_WITHOUT_TRANSACTIONS;
    ConfigureSFlow("");
    std::vector<int> results;
    std::vector<std::string> reasons;
    const auto created = platform->Create("gigabit-ethernet-1/1/1", [&](auto* transaction, auto*) {
        confd_value_t flag{};
        flag.type = C_BOOL;
        for (const auto& [leaf, value] : {std::pair<const char*, confd_value_t>{"/no-such-leaf", Number(1)},
                                          {"/default-sampling-rate", flag},
                                          {"/max-header-size", Number(1)}}) {
            results.push_back(WriteTo(transaction, leaf, value));
            reasons.emplace_back(confd_lasterr());
        }
        return CONFD_OK;
    });
    EXPECT_THAT(results, ElementsAre(CONFD_ERR, CONFD_ERR, CONFD_ERR));
    EXPECT_THAT(reasons, testing::Each(testing::Not(IsEmpty())));
    EXPECT_THAT(created.written, IsEmpty());
}

TEST_P(ContractTest, WriteOnAnotherSocketFails)
{
    SKIP_WITHOUT_TRANSACTIONS;
    ConfigureSFlow("");
    int result = CONFD_OK;
    platform->Create("gigabit-ethernet-1/1/1", [&](confd_trans_ctx* transaction, auto*) {
        confd_value_t value = Number(1);
        result = maapi_set_elem(-1, transaction->thandle, &value, "%s/default-sampling-rate", kEntry);
        return CONFD_OK;
    });
    EXPECT_EQ(result, CONFD_ERR);
}

}  // namespace
