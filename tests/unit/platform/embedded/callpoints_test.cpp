// SPDX-License-Identifier: Apache-2.0
// Callpoint requests, their transactions and the writes made in them.

#include "world.h"

namespace {

const std::string kEntry = "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}";

confd_value_t Uint32(std::uint32_t number)
{
    confd_value_t value{};
    CONFD_SET_UINT32(&value, number);
    return value;
}

class CallpointsTest : public World {
protected:
    CallpointsTest() { Connect(); }

    ipc::cdb::CallpointReply Ask(ipc::cdb::CallpointRequest request)
    {
        request.set_request(17);
        request.set_transaction(3);
        ipc::cdb::ServerMessage message;
        *message.mutable_callpoint_request() = request;
        m_cdb->Send(message);
        Settle();
        const auto answers = m_cdb->Take();
        EXPECT_EQ(answers.size(), 1U);
        EXPECT_EQ(answers.at(0).callpoint_reply().request(), 17U);
        return answers.at(0).callpoint_reply();
    }

    static ipc::cdb::CallpointRequest Create(const std::string& path)
    {
        ipc::cdb::CallpointRequest request;
        request.set_callpoint("sflow-set-sampling-rate");
        request.set_operation(ipc::cdb::CallpointRequest::CREATE);
        request.set_path(path);
        return request;
    }

    /// What maapi_set_elem says inside a create: empty if it is content.
    std::string ErrorOfWrite(int socket, int transaction, confd_value_t value, const std::string& path)
    {
        std::string error = "not called";
        m_data.onCreate = [&](confd_trans_ctx*, const std::string&) {
            error = maapi_set_elem(socket, transaction, &value, "%s", path.c_str()) == CONFD_OK
                        ? ""
                        : confd_lasterr();
        };
        const auto reply = Ask(Create(kEntry));
        EXPECT_EQ(reply.writes_size(), error.empty() ? 1 : 0);
        return error;
    }
};

TEST_F(CallpointsTest, AnswersACreateWithWhatTheCallbackWrote)
{
    m_data.onCreate = [&](confd_trans_ctx* transaction, const std::string& path) {
        auto* confd = static_cast<QxConfdInterface*>(transaction->dx->d_opaque);
        auto value = Uint32(8192);
        EXPECT_EQ(maapi_set_elem(confd->MaapiSocket(), transaction->thandle, &value,
                                 "%s/default-sampling-rate", path.c_str()),
                  CONFD_OK);
    };
    const auto reply = Ask(Create(kEntry));
    EXPECT_TRUE(reply.ok());
    ASSERT_EQ(reply.writes_size(), 1);
    EXPECT_EQ(reply.writes(0).path(), kEntry + "/default-sampling-rate");
    EXPECT_EQ(reply.writes(0).value().uint32(), 8192U);
    EXPECT_EQ(m_events, (Events{"init 3", "create " + kEntry, "finish 3"}));
}

TEST_F(CallpointsTest, ChecksAWriteAtOnce)
{
    const std::string leaf = kEntry + "/default-sampling-rate";
    const int socket = m_config.Confd()->MaapiSocket();
    confd_value_t text{};
    CONFD_SET_NOEXISTS(&text);
    EXPECT_EQ(ErrorOfWrite(socket, 3, Uint32(1), leaf), "");
    EXPECT_NE(ErrorOfWrite(socket, 3, Uint32(1), kEntry + "/polling-interval").find("is of type uint16"),
              std::string::npos);
    EXPECT_NE(
        ErrorOfWrite(socket, 3, Uint32(0), kEntry + "/sampling-rate").find("is from 1 to 16777215, not 0"),
        std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket, 3, Uint32(1), kEntry + "/nonsense").find("nonsense"), std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket, 3, Uint32(1), kEntry + "/name").find("is a key"), std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket, 3, Uint32(1), kEntry).find("is no leaf"), std::string::npos);
    EXPECT_NE(
        ErrorOfWrite(socket, 3, Uint32(1), "/config/oam/sflow/interface[0]/sampling-rate").find("index"),
        std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket, 3, text, leaf).find("is no leaf's"), std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket, 4, Uint32(1), leaf).find("no callback of the transaction 4"),
              std::string::npos);
    EXPECT_NE(ErrorOfWrite(socket + 1, 3, Uint32(1), leaf).find("is not the connection's"),
              std::string::npos);
}

TEST_F(CallpointsTest, RefusesAWriteOutsideACallback)
{
    auto value = Uint32(1);
    EXPECT_EQ(maapi_set_elem(m_config.Confd()->MaapiSocket(), 3, &value, "%s/default-sampling-rate",
                             kEntry.c_str()),
              CONFD_ERR);
    EXPECT_NE(std::string(confd_lasterr()).find("no callback of the transaction 3"), std::string::npos);
}

TEST_F(CallpointsTest, TellsOfARefusalAndWritesNothing)
{
    m_data.createResult = CONFD_ERR;
    m_data.onCreate = [&](confd_trans_ctx*, const std::string&) {
        auto value = Uint32(1);
        maapi_set_elem(m_config.Confd()->MaapiSocket(), 3, &value, "%s/default-sampling-rate",
                       kEntry.c_str());
    };
    const auto reply = Ask(Create(kEntry));
    EXPECT_FALSE(reply.ok());
    EXPECT_EQ(reply.error(), "the callpoint sflow-set-sampling-rate refuses " + kEntry);
    EXPECT_EQ(reply.writes_size(), 0);
    EXPECT_EQ(m_events, (Events{"init 3", "create " + kEntry, "finish 3"}));
}

TEST_F(CallpointsTest, CallsNothingInATransactionThatIsRefused)
{
    m_data.initResult = CONFD_ERR;
    EXPECT_FALSE(Ask(Create(kEntry)).ok());
    EXPECT_EQ(m_events, (Events{"init 3"}));
}

TEST_F(CallpointsTest, CallsRemoveAndSetElement)
{
    auto request = Create(kEntry);
    request.set_operation(ipc::cdb::CallpointRequest::REMOVE);
    EXPECT_TRUE(Ask(request).ok());
    request.set_operation(ipc::cdb::CallpointRequest::SET_ELEM);
    request.set_path(kEntry + "/sampling-rate");
    request.mutable_value()->set_uint32(512);
    EXPECT_TRUE(Ask(request).ok());
    EXPECT_EQ(m_events, (Events{"init 3", "remove " + kEntry, "finish 3", "init 3",
                                "set " + kEntry + "/sampling-rate = 512", "finish 3"}));
}

TEST_F(CallpointsTest, AnswersWhatItCannotServeWithAnError)
{
    auto unknown = Create(kEntry);
    unknown.set_callpoint("other");
    EXPECT_EQ(Ask(unknown).error(), "no callpoint other is served here");
    EXPECT_NE(Ask(Create("/config/nonsense")).error().find("nonsense"), std::string::npos);
    auto operation = Create(kEntry);
    operation.set_operation(static_cast<ipc::cdb::CallpointRequest::Operation>(9));
    EXPECT_EQ(Ask(operation).error(), "operation 9 is not served");
    EXPECT_TRUE(Ask(Create(kEntry)).ok());
}

TEST_F(CallpointsTest, KeepsPercentSignsOfAKey)
{
    const std::string odd = "/config/oam/sflow/interface{100%s/%d}";
    m_data.onCreate = [&](confd_trans_ctx* transaction, const std::string& path) {
        auto value = Uint32(4096);
        const std::string leaf = path + "/default-sampling-rate";
        maapi_set_elem(m_config.Confd()->MaapiSocket(), transaction->thandle, &value, "%s", leaf.c_str());
    };
    const auto reply = Ask(Create(odd));
    ASSERT_EQ(reply.writes_size(), 1);
    EXPECT_EQ(reply.writes(0).path(), odd + "/default-sampling-rate");
}

}  // namespace
