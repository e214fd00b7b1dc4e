// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/request.h"

#include <cctype>

#include "agent/data/errors.h"
#include "netconf/names.h"

namespace agent {
namespace {

constexpr std::string_view kTail = "</rpc-reply>";

std::string ReplyHead(const std::string& attributes)
{
    std::string head = "<rpc-reply xmlns=\"";
    return head.append(netconf::kBaseNamespace).append("\"").append(attributes).append(">");
}

/// The prefix of the attributes that this adds, and the end of their namespace.
constexpr std::string_view kNotes = "switch-history";

/// "NAME=NUMBER" behind what is there. The name is another's word: what would end it here is replaced.
void AddPair(std::string_view name, std::int64_t number, std::string& list)
{
    constexpr std::string_view kOther = "-._";
    if (!list.empty()) list += ' ';
    for (const char c : name)
        list += std::isalnum(static_cast<unsigned char>(c)) || kOther.find(c) != kOther.npos ? c : '_';
    list += '=' + std::to_string(number);
}

}  // namespace

Request::Request(std::shared_ptr<Session> session, Rpc rpc, Discard discard)
    : m_session(std::move(session)), m_rpc(std::move(rpc)), m_discard(std::move(discard))
{
}

Request::~Request()
{
    if (!m_answered && Wanted())
        Refuse(MakeError(Layer::kApplication, cdb::ErrorTag::kOperationFailed, "the request was given up"));
    LetGo();
}

void Request::LetGo()
{
    if (!m_rpc.operation) return;
    if (m_discard)
        m_discard(std::exchange(m_rpc, {}));
    else
        m_rpc.operation.reset();
}

void Request::Ok(const std::vector<netconf::RpcError>& warnings)
{
    if (!warnings.empty()) return Refuse(warnings);
    Send(Head().append("<ok/>").append(kTail));
}

void Request::Refuse(const netconf::RpcError& error) { Refuse(std::vector{error}); }

void Request::Refuse(const std::vector<netconf::RpcError>& errors)
{
    std::string reply = Head();
    for (const netconf::RpcError& error : errors) AppendXml(error, reply);
    Send(std::move(reply.append(kTail)));
}

void Request::Data(const std::function<void(std::string& out)>& write, std::string_view attributes,
                   const std::vector<netconf::RpcError>& warnings)
{
    Send(DataText(write, attributes, warnings));
}

std::string Request::DataText(const std::function<void(std::string& out)>& write, std::string_view attributes,
                              const std::vector<netconf::RpcError>& warnings) const
{
    std::string reply = Head();
    for (const netconf::RpcError& warning : warnings) AppendXml(warning, reply);
    reply.append("<data").append(attributes).append(">");
    const std::size_t before = reply.size();
    write(reply);
    if (reply.size() == before) {
        reply.pop_back();
        reply.append("/>");
    } else {
        reply.append("</data>");
    }
    return reply.append(kTail);
}

std::string Request::OutputText(const std::function<void(std::string& out)>& write) const
{
    std::string reply = Head();
    write(reply);
    return reply.append(kTail);
}

void Request::OkAndFinish()
{
    m_answered = true;
    m_session->Finish(Head().append("<ok/>").append(kTail), SessionEnd::kClosed);
}

void Request::OkAndSubscribe(
    const std::function<std::unique_ptr<EventSubscription>(std::function<void()> wake)>& make)
{
    Ok();
    m_session->Subscribe(make([weak = m_session->weak_from_this()] {
        if (const auto session = weak.lock()) session->SendNews();
    }));
}

std::string Request::Head() const
{
    std::string attributes = m_rpc.attributes;
    const std::string notes = Notes();
    if (!notes.empty() && attributes.find(kNotes) == std::string::npos)
        attributes.append(" xmlns:")
            .append(kNotes)
            .append("=\"")
            .append(netconf::kHistoryNamespace)
            .append("\"" + notes);
    return ReplyHead(attributes);
}

std::string Request::Notes() const
{
    std::string notes;
    const auto add = [&notes](std::string_view name, const std::string& value) {
        if (!value.empty())
            notes.append(" ").append(kNotes).append(":").append(name).append("=\"").append(value).append(
                "\"");
    };
    if (m_commit) add("commit", std::to_string(*m_commit));
    if (m_changes) add("changes", std::to_string(*m_changes));
    std::string list;
    for (const Acknowledgement& each : m_acknowledged) AddPair(each.process, each.took.count(), list);
    add("acknowledged", std::exchange(list, {}));
    for (const auto& [user, edits] : m_others) AddPair(user, edits, list);
    add("also-edited-by", list);
    return notes;
}

void Request::Send(std::string reply)
{
    if (std::exchange(m_answered, true)) return;
    // Errors and warnings stand first.
    if (std::string_view(reply).substr(Head().size()).starts_with("<rpc-error"))
        ++m_session->Counters().outRpcErrors;
    LetGo();  // frees the tree before the next request, which may be as large
    if (m_place) m_place->SetSize(reply.size());
    m_session->Send(std::move(reply), std::move(m_place));
}

std::string RefusalText(const std::string& attributes, const netconf::RpcError& error)
{
    std::string reply = ReplyHead(attributes);
    AppendXml(error, reply);
    return reply.append(kTail);
}

}  // namespace agent
