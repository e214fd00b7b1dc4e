// SPDX-License-Identifier: Apache-2.0
// SFlowConfigHandler: construction, the manager gate, the initial load and the start of a commit.

#include "sflow_config_handler.h"

#include <confd_cdb.h>

#include <cstdint>
#include <functional>

#include "sflow_config_handler_internal.h"
#include "sflow_report.h"

namespace {

constexpr char kMgmtAddressPath[] = "/config/interface/mgmt/ipv4/address/ip";
constexpr std::int32_t kInterfacesNamespace = 328607681;
constexpr std::int32_t kSFlowNamespace = 116992694;
constexpr std::int32_t kIterationFlags = 16;

}  // namespace

SFlowConfigHandler::SFlowConfigHandler(zlog_category_t* category)
    : m_category(category), m_mgrAvailable(false)
{
    const auto status = std::bind(&SFlowConfigHandler::SetMgrStatus, this, std::placeholders::_1);
    // Build returns a plain or an owning pointer.
    m_service = std::unique_ptr<sflow::IService>(
        sflow::IService::Build({status, boost::any(true)}, {status, boost::any(false)}));

    const auto changed = std::bind(&SFlowConfigHandler::HandleCfg, this, std::placeholders::_1,
                                   std::placeholders::_2, std::placeholders::_3, std::placeholders::_4);
    m_subscriptionPoints.push_back({1, kInterfacesNamespace, kMgmtAddressPath, kIterationFlags, changed});
    m_subscriptionPoints.push_back({2, kSFlowNamespace, kSFlowPath, kIterationFlags, changed});
}

SFlowConfigHandler::~SFlowConfigHandler()
{
    // The client holds callbacks into this object, so it is destroyed before the members that they use.
    m_service.reset();
}

void SFlowConfigHandler::SetMgrStatus(boost::any status)
{
    const bool found = boost::any_cast<bool>(status);
    SFLOW_LOG(m_category, kSource, kLogStep, "SFlowMgr server %s", found ? "found" : "lost");
    if (found == m_mgrAvailable) {
        SFLOW_LOG(m_category, kSource, kLogNotice, "SFlowMgr status did not change, nothing to do");
        return;
    }
    m_mgrAvailable = found;
    if (!found) return;

    // The framework loads the configuration itself when its connection comes up.
    if (m_confd == nullptr || !m_confd->IsConnected()) return;

    SFLOW_LOG(m_category, kSource, kLogDetail, "SFlowMgr server found, load initial config");
    {
        QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
        LoadInitialConfig(session.Socket());
    }
    ApplyCommitConfig();
}

void SFlowConfigHandler::LoadInitialConfig(int socket)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    if (!m_mgrAvailable) {
        SFLOW_LOG(m_category, kSource, kLogNotice, "Manager is not available yet, wait for server found");
        return;
    }
    m_collectors.clear();
    m_deletedCollectors.clear();
    m_interfaces.clear();
    HandleCfgAgent(socket);
    GetCollectors(socket);
    GetInterfaces(socket, true, std::string(), std::string());
}

void SFlowConfigHandler::ApplyInitialConfig() { ApplyCommitConfig(); }

void SFlowConfigHandler::StartCommit()
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    m_collectors.clear();
    m_deletedCollectors.clear();
    m_interfaces.clear();
}

const std::vector<SubscriptionPoint>& SFlowConfigHandler::GetSubscriptionPoints() const
{
    return m_subscriptionPoints;
}
