// SPDX-License-Identifier: Apache-2.0
// SFlowConfigHandler: reads collectors and interfaces from the database and stages them.

#include <confd_cdb.h>
#include <confd_lib.h>

#include <cstddef>
#include <string>
#include <vector>

#include "sflow_config_handler.h"
#include "sflow_config_handler_internal.h"
#include "sflow_report.h"
#include "sflow_text.h"

namespace {

// Values per entry. A collector's: name, enabled, address, datagram size, port. An interface's:
// name, rate, one that is not used here, maximum header size, polling interval.
constexpr int kCollectorValues = 5;
constexpr int kInterfaceValues = 5;

}  // namespace

void SFlowConfigHandler::GetCollectors(int sock)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    const int n = cdb_num_instances(sock, kCollectorPath);
    if (n < 0) EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
    if (n == 0) {
        SFLOW_LOG(m_category, kSource, kLogStep, "No collectors available, nothing to do");
        return;
    }
    std::vector<confd_value_t> v(static_cast<std::size_t>(n) * kCollectorValues);
    if (cdb_get_objects(sock, v.data(), kCollectorValues, 0, n, kCollectorPath) < 1)
        EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);

    for (std::size_t i = 0; i < v.size(); i += kCollectorValues) {
        const std::string name = Text(CONFD_GET_BUFPTR(&v[i]));
        collector_st& collector = m_collectors[name];
        collector.enabled = CONFD_GET_BOOL(&v[i + 1]) != 0;
        collector.ip = CONFD_GET_IPV4(&v[i + 2]).s_addr;
        collector.dgsize = CONFD_GET_UINT16(&v[i + 3]);
        collector.port = CONFD_GET_UINT16(&v[i + 4]);
        collector.send = collector.enabled;
        SFLOW_LOG(m_category, kSource, kLogStep, "Add collector %s (ip = 0x%x, dgsize = %hu, port = %hu)",
                  name.c_str(), collector.ip, collector.dgsize, collector.port);
        confd_free_value(&v[i]);
    }
}

// The path with the collector's name in it is the format: the schema allows no "%" in a collector's name.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
bool SFlowConfigHandler::GetCollector(int sock, std::string name, collector_st& collector)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Get data for collector %s", name.c_str());
    const auto staged = m_collectors.find(name);
    if (staged != m_collectors.end()) {
        SFLOW_LOG(m_category, kSource, kLogDetail, "Data for collector %s already available", name.c_str());
        collector = staged->second;
        return true;
    }

    confd_value_t v[kCollectorValues] = {};
    const std::string path = std::string(kCollectorPath) + "{" + name + "}";
    if (cdb_get_object(sock, v, kCollectorValues, path.c_str()) < 1) {
        SFLOW_LOG(m_category, kSource, kLogNotice, "Could not find collector '%s' (%s)", name.c_str(),
                  confd_lasterr());
        return false;
    }
    if (Text(CONFD_GET_BUFPTR(&v[0])) != name) EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
    confd_free_value(&v[0]);
    collector.enabled = CONFD_GET_BOOL(&v[1]) != 0;
    collector.ip = CONFD_GET_IPV4(&v[2]).s_addr;
    collector.dgsize = CONFD_GET_UINT16(&v[3]);
    collector.port = CONFD_GET_UINT16(&v[4]);
    collector.send = false;
    m_collectors[name] = collector;
    return true;
}
#pragma GCC diagnostic pop

bool SFlowConfigHandler::GetInterfaces(int sock, bool applyAll, std::string changedCollector,
                                       std::string interfaceName)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    std::vector<confd_value_t> v(kInterfaceValues);
    if (interfaceName.empty()) {
        const int n = cdb_num_instances(sock, kInterfacePath);
        if (n < 0) EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
        if (n == 0) {
            SFLOW_LOG(m_category, kSource, kLogDetail, "No interfaces available, nothing to do");
            return false;
        }
        v.resize(static_cast<std::size_t>(n) * kInterfaceValues);
        if (cdb_get_objects(sock, v.data(), kInterfaceValues, 0, n, kInterfacePath) < 1)
            EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
    } else {
        if (m_interfaces.count(interfaceName) != 0) {
            SFLOW_LOG(m_category, kSource, kLogDetail, "Data for interface %s already available",
                      interfaceName.c_str());
            return true;
        }
        if (cdb_get_object(sock, v.data(), kInterfaceValues, "/config/oam/sflow/interface{%s}",
                           interfaceName.c_str()) < 1)
            EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
    }

    for (std::size_t i = 0; i < v.size(); i += kInterfaceValues) {
        interfaceName = Text(CONFD_GET_BUFPTR(&v[i]));
        confd_free_value(&v[i]);
        interface_st& interface = m_interfaces[interfaceName];
        // Cleared even if this commit has set it: the changed leaves are delivered next and set it again.
        interface.update = false;
        interface.rate = CONFD_GET_UINT32(&v[i + 1]);
        interface.max_header_size = CONFD_GET_UINT16(&v[i + 3]);
        interface.interval = CONFD_GET_UINT16(&v[i + 4]);
        SFLOW_LOG(m_category, kSource, kLogDetail,
                  "Get data for interface %s (rate=%d, max_header_size=%d, interval=%d)",
                  interfaceName.c_str(), static_cast<int>(interface.rate), interface.max_header_size,
                  interface.interval);
        GetInterfaceCollectors(sock, Sample, applyAll, changedCollector, interfaceName);
        GetInterfaceCollectors(sock, Counter, applyAll, changedCollector, interfaceName);
    }
    return true;
}

// The format is one of two literals with one "%s" each.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void SFlowConfigHandler::GetInterfaceCollectors(int sock, ECollector kind, bool applyAll,
                                                std::string changedCollector, std::string interfaceName)
{
    const char* const path = kind == Sample ? "/config/oam/sflow/interface{%s}/flow-sampling-collector"
                                            : "/config/oam/sflow/interface{%s}/counter-sampling-collector";
    SFLOW_LOG(m_category, kSource, kLogStep, path, interfaceName.c_str());
    const int n = cdb_num_instances(sock, path, interfaceName.c_str());
    if (n < 0) EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
    if (n == 0) {
        SFLOW_LOG(m_category, kSource, kLogDetail, "No collectors for interface %s", interfaceName.c_str());
        return;
    }
    SFLOW_LOG(m_category, kSource, kLogDetail, "Get %d collector(s) for interface %s", n,
              interfaceName.c_str());
    std::vector<confd_value_t> vCollector(static_cast<std::size_t>(n));
    if (cdb_get_objects(sock, vCollector.data(), 1, 0, n, path, interfaceName.c_str()) < 1)
        EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);

    for (std::size_t c = 0; c < vCollector.size(); ++c) {
        const std::string name = Text(CONFD_GET_BUFPTR(&vCollector[c]));
        confd_free_value(&vCollector[c]);
        collector_st collector;
        if (!GetCollector(sock, name, collector))
            EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
        const bool changed = name == changedCollector;
        if (collector.enabled) {
            // "idx" is the kind, not the position in the list.
            SFLOW_LOG(m_category, kSource, kLogStep, "Add collector %s (idx = %d) to interface %s",
                      name.c_str(), static_cast<int>(kind), interfaceName.c_str());
            m_interfaces[interfaceName].collectors[kind][name] = applyAll || changed;
        } else if (!applyAll && changed) {
            m_interfaces[interfaceName].removedCollectors[kind].insert(name);
        }
    }
}
#pragma GCC diagnostic pop
