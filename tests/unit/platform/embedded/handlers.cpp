// SPDX-License-Identifier: Apache-2.0
#include "handlers.h"

#include "platform/embedded/confd/convert.h"

namespace {

std::string PathText(const confd_hkeypath_t* keypath)
{
    char text[512];
    return confd_pp_kpath(text, sizeof text, keypath) >= 0 ? text : confd_lasterr();
}

std::string OperationName(confd_iter_op operation)
{
    static const std::map<confd_iter_op, std::string> names = {{MOP_CREATED, "created"},
                                                               {MOP_DELETED, "deleted"},
                                                               {MOP_MODIFIED, "modified"},
                                                               {MOP_VALUE_SET, "value-set"}};
    return names.at(operation);
}

}  // namespace

std::string Described(const confd_hkeypath_t* keypath, confd_iter_op operation, const confd_value_t* oldValue,
                      const confd_value_t* newValue)
{
    std::string text = OperationName(operation) + " " + PathText(keypath);
    if (oldValue != nullptr) text += " (old value given)";
    if (newValue != nullptr) text += " = " + cdb::ToText(embedded::FromConfd(*newValue));
    return text;
}

void RecordingConfig::AddPoint(std::int32_t priority, const char* path)
{
    const auto callback = [this](confd_hkeypath_t* keypath, confd_iter_op operation, confd_value_t* oldValue,
                                 confd_value_t* newValue) {
        const std::string node = Described(keypath, operation, oldValue, newValue);
        m_events.push_back(node);
        if (onNode) onNode(node);
        const auto found = returns.find(node);
        return static_cast<confd_iter_ret>(found == returns.end() ? ITER_RECURSE : found->second);
    };
    m_points.push_back({priority, 116992694, path, 16, callback});
}

void RecordingConfig::ConfdConnected(ELEM_CONFD_PHASE_ET phase)
{
    m_events.push_back("connected in phase " + std::to_string(phase));
}

void RecordingConfig::ConfdDisconnected() { m_events.emplace_back("disconnected"); }

void RecordingConfig::LoadInitialConfig(int socket)
{
    m_events.emplace_back("load");
    if (onLoad) onLoad(socket);
}

void RecordingConfig::ApplyInitialConfig() { m_events.emplace_back("apply initial"); }
void RecordingConfig::StartCommit() { m_events.emplace_back("start commit"); }
void RecordingConfig::ApplyCommitConfig() { m_events.emplace_back("apply commit"); }

void RecordingData::ConfdConnected(ELEM_CONFD_PHASE_ET phase)
{
    m_events.push_back("data connected in phase " + std::to_string(phase));
}

void RecordingData::ConfdDisconnected() { m_events.emplace_back("data disconnected"); }

int RecordingData::TransactionInit(confd_trans_ctx* transaction)
{
    m_events.push_back("init " + std::to_string(transaction->thandle));
    return initResult;
}

int RecordingData::TransactionFinish(confd_trans_ctx* transaction)
{
    m_events.push_back("finish " + std::to_string(transaction->thandle));
    return CONFD_OK;
}

int RecordingData::SetRate::CreateCallback(confd_trans_ctx* transaction, confd_hkeypath_t* keypath)
{
    m_handler.m_events.push_back("create " + PathText(keypath));
    if (m_handler.onCreate) m_handler.onCreate(transaction, PathText(keypath));
    return m_handler.createBody ? m_handler.createBody(transaction, keypath) : m_handler.createResult;
}

int RecordingData::SetRate::RemoveCallback(confd_trans_ctx*, confd_hkeypath_t* keypath)
{
    m_handler.m_events.push_back("remove " + PathText(keypath));
    return CONFD_OK;
}

int RecordingData::SetRate::SetElemCallback(confd_trans_ctx*, confd_hkeypath_t* keypath, confd_value_t* value)
{
    m_handler.m_events.push_back("set " + PathText(keypath) + " = " +
                                 cdb::ToText(embedded::FromConfd(*value)));
    return CONFD_OK;
}
