// SPDX-License-Identifier: Apache-2.0
// SFlowConfigHandler: what one changed node stages, and the agent address, which is sent at once.

#include <confd_cdb.h>
#include <confd_lib.h>
#include <nettypes/ipv4_addr.h>

#include <cstdint>
#include <string>

#include "sflow_config_handler.h"
#include "sflow_config_handler_internal.h"
#include "sflow_report.h"

namespace {

// Stands in both removal sets of a deleted interface, for all its collectors.
constexpr char kAllCollectors[] = "all";

}  // namespace

confd_iter_ret SFlowConfigHandler::HandleCfgAgent(int sock)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    confd_value_t v;
    CONFD_SET_NOEXISTS(&v);  // released below, even if nothing was read
    std::uint32_t word = 0;
    if (cdb_get(sock, &v, "%s/agent/ipv4", kSFlowPath) == CONFD_OK) {
        word = CONFD_GET_IPV4(&v).s_addr;
    } else {
        // Both messages carry the reason of the failed read.
        SFLOW_LOG(m_category, kSource, kLogStep, "Using outband mgmt ip address (%s)", confd_lasterr());
        if (cdb_get(sock, &v, "/config/interface/mgmt[0]/ipv4/address/ip") == CONFD_OK) {
            word = CONFD_GET_IPV4_AND_PLEN(&v).ip.s_addr;
        } else {
            SFLOW_LOG(m_category, kSource, kLogStep, "Using default ip address (%s)", confd_lasterr());
        }
    }
    nettypes::IPv4Addr address(word);
    SFLOW_LOG(m_category, kSource, kLogStep, "Set Agent IP to %s", address.to_string().c_str());
    m_service->SetAgentAddress(address);
    confd_free_value(&v);
    return kIterSuspend;
}

confd_iter_ret SFlowConfigHandler::HandleCfgCollector(std::string name, confd_iter_op op)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "%s{%s} (op = %d)", kCollectorPath, name.c_str(),
              static_cast<int>(op));
    if (op != MOP_DELETED) return ITER_RECURSE;
    SFLOW_LOG(m_category, kSource, kLogStep, "Add collector '%s' to delete list", name.c_str());
    m_deletedCollectors.insert(name);
    return ITER_CONTINUE;
}

confd_iter_ret SFlowConfigHandler::HandleCfgEnabled(std::string name, bool enabled)
{
    // The closing parenthesis without an opening one is part of the message.
    SFLOW_LOG(m_category, kSource, kLogStep, "%s{%s}/enabled = %d)", kCollectorPath, name.c_str(),
              static_cast<int>(enabled));
    QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
    GetInterfaces(session.Socket(), false, name, std::string());
    collector_st collector;
    if (!GetCollector(session.Socket(), name, collector))
        EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
    if (enabled) {
        SFLOW_LOG(m_category, kSource, kLogStep, "Add collector '%s', ip = 0x%x, enabled: %d", name.c_str(),
                  collector.ip, 1);
        m_collectors[name].send = true;
    } else {
        SFLOW_LOG(m_category, kSource, kLogStep, "Del collector '%s', ip = 0x%x, enabled: %d", name.c_str(),
                  collector.ip, 0);
        m_deletedCollectors.insert(name);
    }
    return kIterSuspend;
}

confd_iter_ret SFlowConfigHandler::HandleCfgInterface(std::string name, confd_iter_op op)
{
    const std::string path = std::string(kInterfacePath) + "{" + name + "}";
    SFLOW_LOG(m_category, kSource, kLogStep, "%s (op = %d)", path.c_str(), static_cast<int>(op));
    if (op != MOP_DELETED) {
        SFLOW_LOG(m_category, kSource, kLogStep, "Set interface %s", name.c_str());
        QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
        if (!GetInterfaces(session.Socket(), op == MOP_CREATED, std::string(), name))
            EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
        return ITER_RECURSE;
    }
    SFLOW_LOG(m_category, kSource, kLogStep, "Delete interface %s", name.c_str());
    interface_st& interface = m_interfaces[name];
    interface.update = false;
    interface.collectors[Sample].clear();
    interface.removedCollectors[Sample].insert(kAllCollectors);
    interface.collectors[Counter].clear();
    interface.removedCollectors[Counter].insert(kAllCollectors);
    return ITER_CONTINUE;
}

confd_iter_ret SFlowConfigHandler::HandleCfgInterfaceCollector(std::string interfaceName, confd_iter_op op,
                                                               ECollector kind, std::string collectorName)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Get %s collector '%s' for interface '%s' (op = %d)",
              kind == Sample ? "sample" : "counter", collectorName.c_str(), interfaceName.c_str(),
              static_cast<int>(op));
    if (op == MOP_CREATED) {
        QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
        collector_st collector;
        if (!GetCollector(session.Socket(), collectorName, collector))
            EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
        // A disabled collector is not attached; a detachment is staged in any case.
        if (!collector.enabled) return ITER_CONTINUE;
        SFLOW_LOG(m_category, kSource, kLogStep, "Add interface %s collector %s", interfaceName.c_str(),
                  collectorName.c_str());
        m_interfaces[interfaceName].collectors[kind][collectorName] = true;
    } else if (op == MOP_DELETED) {
        SFLOW_LOG(m_category, kSource, kLogStep, "Remove interface %s collector %s", interfaceName.c_str(),
                  collectorName.c_str());
        m_interfaces[interfaceName].removedCollectors[kind].insert(collectorName);
    } else {
        SFLOW_LOG(m_category, kSource, kLogStep, "Ignoring operation %d", static_cast<int>(op));
    }
    return ITER_CONTINUE;
}
