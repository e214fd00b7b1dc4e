// SPDX-License-Identifier: Apache-2.0
// Manages the switch with libnetconf2's client, as a controller would, and checks every answer:
//
//   netconf2_peer ssh PORT USER KEY       through an OpenSSH server's subsystem "netconf"
//   netconf2_peer callhome PORT USER KEY  the same, but waits on the port for the switch to call (RFC 8071)
//
// Ends with 0 when all holds, 1 when something does not, and 77 where it was built without the library.
// Expects the switch to run with the configuration that the scenarios begin with.

#include <cstdio>

#ifdef HAS_NETCONF2

#include <libyang/libyang.h>
#include <nc_client.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kPatience = 30'000;  // milliseconds

struct Free {
    void operator()(nc_session* session) const { nc_session_free(session, nullptr); }
    void operator()(nc_rpc* rpc) const { nc_rpc_free(rpc); }
    void operator()(lyd_node* tree) const { lyd_free_all(tree); }
    void operator()(char* text) const { std::free(text); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Free>;

void Check(bool holds, const std::string& what)
{
    if (!holds) throw std::runtime_error(what);
}

std::string TextOf(const lyd_node* tree)
{
    char* raw = nullptr;
    if (tree == nullptr || lyd_print_mem(&raw, tree, LYD_XML, LYD_PRINT_SHRINK) != LY_SUCCESS) return {};
    const Owned<char> text(raw);
    return text ? text.get() : "";
}

bool Has(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

struct Answer {
    std::string envelope;  // with the errors
    std::string data;
};

Answer Ask(nc_session* session, nc_rpc* rawRpc)
{
    const Owned<nc_rpc> rpc(rawRpc);
    Check(rpc != nullptr, "the library makes no request");
    std::uint64_t number = 0;
    Check(nc_send_rpc(session, rpc.get(), kPatience, &number) == NC_MSG_RPC, "the request is not sent");
    lyd_node* rawEnvelope = nullptr;
    lyd_node* rawData = nullptr;
    NC_MSG_TYPE type = NC_MSG_NOTIF;
    while (type == NC_MSG_NOTIF)  // which the library keeps for later
        type = nc_recv_reply(session, rpc.get(), number, kPatience, &rawEnvelope, &rawData);
    const Owned<lyd_node> envelope(rawEnvelope);
    const Owned<lyd_node> data(rawData);
    Check(type == NC_MSG_REPLY, "no reply that the library takes: " + TextOf(envelope.get()));
    return {TextOf(envelope.get()), TextOf(data.get())};
}

void Do(nc_session* session, nc_rpc* rpc)
{
    const Answer answer = Ask(session, rpc);
    Check(Has(answer.envelope, "<ok"), "not <ok/> but " + answer.envelope);
}

std::string Data(nc_session* session, nc_rpc* rpc)
{
    const Answer answer = Ask(session, rpc);
    Check(!Has(answer.envelope, "<rpc-error"), answer.envelope);
    return answer.data;
}

void Refused(nc_session* session, const std::string& tag, nc_rpc* rpc)
{
    const Answer answer = Ask(session, rpc);
    Check(Has(answer.envelope, "<error-tag>" + tag + "</error-tag>"),
          "not refused with " + tag + ": " + answer.envelope);
}

std::string Sflow(const std::string& content)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\">"
           "<sflow xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" +
           content + "</sflow></oam></config>";
}

const std::string kEth1 = Sflow("<interface><name>eth1</name></interface>");

std::string Rate(const std::string& rate)
{
    return Sflow("<interface><name>eth1</name><sampling-rate>" + rate + "</sampling-rate></interface>");
}

nc_rpc* GetConfig(NC_DATASTORE source, const std::string& filter)
{
    return nc_rpc_getconfig(source, filter.c_str(), NC_WD_UNKNOWN, NC_PARAMTYPE_DUP_AND_FREE);
}

nc_rpc* Edit(const std::string& content, NC_RPC_EDIT_TESTOPT test = NC_RPC_EDIT_TESTOPT_UNKNOWN)
{
    return nc_rpc_edit(NC_DATASTORE_CANDIDATE, NC_RPC_EDIT_DFLTOP_MERGE, test, NC_RPC_EDIT_ERROPT_UNKNOWN,
                       content.c_str(), NC_PARAMTYPE_DUP_AND_FREE);
}

nc_rpc* Commit() { return nc_rpc_commit(0, 0, nullptr, nullptr, NC_PARAMTYPE_CONST); }

void CheckGreeting(nc_session* session)
{
    Check(nc_session_get_id(session) > 0, "the session has no number");
    for (const char* wanted :
         {"urn:ietf:params:netconf:base:1.1", "urn:ietf:params:netconf:capability:candidate:1.0"})
        Check(nc_session_cpblt(session, wanted) != nullptr, wanted);
}

void CheckCommit(nc_session* session, nc_session* other)
{
    Check(Has(Data(session, GetConfig(NC_DATASTORE_RUNNING, kEth1)), "<sampling-rate>1024<"),
          "the first rate");
    Do(session, nc_rpc_lock(NC_DATASTORE_CANDIDATE));
    Do(session, Edit(Rate("31")));
    Do(session, nc_rpc_validate(NC_DATASTORE_CANDIDATE, nullptr, NC_PARAMTYPE_CONST));
    Refused(other, "lock-denied", nc_rpc_lock(NC_DATASTORE_CANDIDATE));
    Refused(other, "in-use", Commit());
    Do(session, Commit());
    Do(session, nc_rpc_unlock(NC_DATASTORE_CANDIDATE));
    Check(Has(Data(session, GetConfig(NC_DATASTORE_RUNNING, kEth1)), "<sampling-rate>31<"), "the new rate");
    Check(
        !Has(Data(session, GetConfig(NC_DATASTORE_RUNNING, Sflow("<interface><name>no</name></interface>"))),
             "<interface"),
        "a filter that selects nothing");
}

void CheckErrors(nc_session* session)
{
    Refused(session, "invalid-value", Edit(Rate("0")));
    Refused(session, "unknown-element", Edit(Sflow("<no-such-thing/>")));
    Refused(session, "data-missing",
            Edit(Sflow("<collector nc:operation=\"delete\"><name>nobody</name></collector>")));
    Do(session, Edit(Sflow("<collector><name>c8</name></collector>"), NC_RPC_EDIT_TESTOPT_SET));
    Refused(session, "missing-element", Commit());
    Do(session, nc_rpc_discard());
    Check(!Has(Data(session, GetConfig(NC_DATASTORE_CANDIDATE, Sflow("<collector/>"))), "c8"), "discarded");
}

void CheckCopies(nc_session* session)
{
    const auto copy = [](NC_DATASTORE source, const char* config) {
        return nc_rpc_copy(NC_DATASTORE_CANDIDATE, nullptr, source, config, NC_WD_UNKNOWN,
                           NC_PARAMTYPE_DUP_AND_FREE);
    };
    Do(session, copy(NC_DATASTORE_RUNNING, nullptr));
    const std::string own = Rate("32");
    Do(session, copy(NC_DATASTORE_CONFIG, own.c_str()));
    Check(Has(Data(session, GetConfig(NC_DATASTORE_CANDIDATE, kEth1)), "<sampling-rate>32<"),
          "the copied rate");
    Do(session, nc_rpc_validate(NC_DATASTORE_CONFIG, own.c_str(), NC_PARAMTYPE_DUP_AND_FREE));
    Do(session, nc_rpc_discard());
}

void CheckSchema(nc_session* session)
{
    const std::string text =
        Data(session, nc_rpc_getschema("switch-oam-sflow", nullptr, "yang", NC_PARAMTYPE_DUP_AND_FREE));
    Check(Has(text, "module switch-oam-sflow"), text);
}

void CheckDatastores(nc_session* session)
{
    const auto get = [](const char* datastore, int withOrigin) {
        return nc_rpc_getdata(datastore, kEth1.c_str(), "true", nullptr, 0, 0, 0, withOrigin, NC_WD_UNKNOWN,
                              NC_PARAMTYPE_DUP_AND_FREE);
    };
    Check(Has(Data(session, get("ietf-datastores:running", 0)), "<sampling-rate>31<"), "running by get-data");
    const std::string inUse = Data(session, get("ietf-datastores:operational", 1));
    Check(Has(inUse, "origin=\"or:intended\"") && Has(inUse, "origin=\"or:default\""), inUse);
    Refused(session, "invalid-value", get("ietf-datastores:running", 1));
    const auto edit = [](const char* datastore, const std::string& content) {
        return nc_rpc_editdata(datastore, NC_RPC_EDIT_DFLTOP_MERGE, content.c_str(),
                               NC_PARAMTYPE_DUP_AND_FREE);
    };
    Do(session, edit("ietf-datastores:candidate", Rate("33")));
    Check(Has(Data(session, get("ietf-datastores:candidate", 0)), "<sampling-rate>33<"),
          "candidate by get-data");
    Refused(session, "invalid-value", edit("ietf-datastores:running", Rate("34")));
    Do(session, Commit());
}

void CheckEvents(nc_session* subscriber, nc_session* session)
{
    const char* filter =
        "<netconf-config-change xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/>";
    Do(subscriber, nc_rpc_subscribe(nullptr, filter, nullptr, nullptr, NC_PARAMTYPE_CONST));
    Do(session, Edit(Rate("35")));
    Do(session, Commit());
    lyd_node* rawEnvelope = nullptr;
    lyd_node* rawEvent = nullptr;
    const NC_MSG_TYPE type = nc_recv_notif(subscriber, kPatience, &rawEnvelope, &rawEvent);
    const Owned<lyd_node> envelope(rawEnvelope);
    const Owned<lyd_node> event(rawEvent);
    Check(type == NC_MSG_NOTIF, "no notification that the library takes");
    const std::string text = TextOf(event.get());
    Check(Has(text, "sampling-rate</target>") && Has(text, "<source-host>127.0.0.1</source-host>"), text);
}

void CheckEnd(nc_session* session, nc_session* other)
{
    Do(session, nc_rpc_kill(nc_session_get_id(other)));
    const Owned<nc_rpc> rpc(nc_rpc_discard());
    std::uint64_t number = 0;
    lyd_node* envelope = nullptr;
    lyd_node* data = nullptr;
    const bool answers = nc_send_rpc(other, rpc.get(), kPatience, &number) == NC_MSG_RPC &&
                         nc_recv_reply(other, rpc.get(), number, kPatience, &envelope, &data) == NC_MSG_REPLY;
    lyd_free_all(envelope);
    lyd_free_all(data);
    Check(!answers, "a killed session still answers");
}

int TrustAll(const char*, ssh_session, void*) { return 0; }

Owned<nc_session> Connect(bool isCalled, std::uint16_t port)
{
    nc_session* session = nullptr;
    if (isCalled) {
        Check(nc_accept_callhome(kPatience, nullptr, &session) == 1, "the switch does not call");
    } else {
        session = nc_connect_ssh("127.0.0.1", port, nullptr);
    }
    Check(session != nullptr, "no session");
    return Owned<nc_session>(session);
}

void Run(const std::vector<std::string>& arguments)
{
    const bool isCalled = arguments.at(1) == "callhome";
    const auto port = static_cast<std::uint16_t>(std::stoi(arguments.at(2)));
    const std::string& user = arguments.at(3);
    const std::string& key = arguments.at(4);
    if (isCalled) {
        nc_client_ssh_ch_set_auth_hostkey_check_clb(TrustAll, nullptr);
        nc_client_ssh_ch_set_username(user.c_str());
        nc_client_ssh_ch_add_keypair((key + ".pub").c_str(), key.c_str());
        nc_client_ssh_ch_set_auth_pref(NC_SSH_AUTH_PUBLICKEY, 3);
        Check(nc_client_ssh_ch_add_bind_listen("127.0.0.1", port) == 0, "the port can't be listened on");
    } else {
        nc_client_ssh_set_auth_hostkey_check_clb(TrustAll, nullptr);
        nc_client_ssh_set_username(user.c_str());
        nc_client_ssh_add_keypair((key + ".pub").c_str(), key.c_str());
        nc_client_ssh_set_auth_pref(NC_SSH_AUTH_PUBLICKEY, 3);
    }
    const auto session = Connect(isCalled, port);
    CheckGreeting(session.get());
    if (isCalled) {
        CheckSchema(session.get());
        Do(session.get(), Edit(Rate("36")));
        Do(session.get(), Commit());
        return;
    }
    const auto other = Connect(isCalled, port);
    CheckCommit(session.get(), other.get());
    CheckErrors(session.get());
    CheckCopies(session.get());
    CheckSchema(session.get());
    CheckDatastores(session.get());
    CheckEvents(other.get(), session.get());
    CheckEnd(session.get(), other.get());
}

}  // namespace

int main(int argc, char** argv)
{
    nc_client_init();
    nc_verbosity(NC_VERB_ERROR);
    int status = 0;
    try {
        Run({argv, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        status = 1;
    }
    nc_client_destroy();
    return status;
}

#else

int main()
{
    std::fputs("built without libnetconf2 (the package libnetconf2-dev)\n", stderr);
    return 77;
}

#endif
