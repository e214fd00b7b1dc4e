// SPDX-License-Identifier: Apache-2.0
// SFlowConfigHandler: sends what is staged to the sFlow service. Ignores the results and
// leaves everything staged: applying twice sends twice.

#include <nettypes/ipv4_addr.h>

#include <string>

#include "sflow_config_handler.h"
#include "sflow_config_handler_internal.h"
#include "sflow_report.h"

namespace {

// The direction in every UpdateInterface.
constexpr int kDirection = 2;

}  // namespace

void SFlowConfigHandler::ApplyCommitConfig()
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Entry Point");
    // A collector is added before an interface refers to it.
    for (const auto& [name, collector] : m_collectors) {
        if (!collector.send) continue;
        SFLOW_LOG(m_category, kSource, kLogStep, "Send collector %s (svc: %p)", name.c_str(),
                  static_cast<void*>(m_service.get()));
        nettypes::IPv4Addr address(collector.ip);
        m_service->AddCollector(name, address, collector.port, collector.dgsize);
        SFLOW_LOG(m_category, kSource, kLogStep, "Collector ip %s", address.to_string().c_str());
    }
    for (const auto& [name, interface] : m_interfaces) {
        bool updatePending = true;
        ApplyCommitConfigInterface(name, interface, Sample, updatePending);
        ApplyCommitConfigInterface(name, interface, Counter, updatePending);
        const auto& removed = interface.removedCollectors;
        if (updatePending) {
            if (interface.collectors[Sample].empty() && interface.collectors[Counter].empty()) {
                if (!removed[Sample].empty() || !removed[Counter].empty()) {
                    SFLOW_LOG(m_category, kSource, kLogStep, "Unset interface %s (no collectors)",
                              name.c_str());
                    m_service->UnsetInterface(name);
                }
                continue;  // UnsetInterface removes its collectors too
            }
            if (interface.update) {
                SFLOW_LOG(m_category, kSource, kLogStep, "Update interface %s", name.c_str());
                m_service->UpdateInterface(name, std::string(), std::string(), interface.rate, kDirection,
                                           interface.max_header_size, interface.interval);
            }
        }
        for (const std::string& collector : removed[Sample]) {
            SFLOW_LOG(m_category, kSource, kLogStep, "Remove sample collector %s from interface %s",
                      collector.c_str(), name.c_str());
            m_service->RemoveSampleCollector(name, collector);
        }
        for (const std::string& collector : removed[Counter]) {
            SFLOW_LOG(m_category, kSource, kLogStep, "Remove counter collector %s from interface %s",
                      collector.c_str(), name.c_str());
            m_service->RemoveCounterCollector(name, collector);
        }
    }
    // A collector is deleted after every interface has been detached from it.
    for (const std::string& collector : m_deletedCollectors) {
        SFLOW_LOG(m_category, kSource, kLogStep, "Delete  collector %s", collector.c_str());
        m_service->DeleteCollector(collector);
    }
}

void SFlowConfigHandler::ApplyCommitConfigInterface(std::string name, interface_st interface, ECollector kind,
                                                    bool& updatePending)
{
    SFLOW_LOG(m_category, kSource, kLogStep, "Apply interface %s configuration", name.c_str());
    const char* const word = kind == Sample ? "Sample" : "Counter";
    for (const auto& [collector, apply] : interface.collectors[kind]) {
        if (!apply) {
            SFLOW_LOG(m_category, kSource, kLogStep, "%s collector %s is not enabled, skip it", word,
                      collector.c_str());
        } else if (updatePending) {
            SFLOW_LOG(m_category, kSource, kLogStep, "Update interface %s", name.c_str());
            m_service->UpdateInterface(name, kind == Sample ? collector : std::string(),
                                       kind == Sample ? std::string() : collector, interface.rate, kDirection,
                                       interface.max_header_size, interface.interval);
            updatePending = false;
        } else if (kind == Sample) {
            SFLOW_LOG(m_category, kSource, kLogStep, "Add sample collector %s to interface %s",
                      collector.c_str(), name.c_str());
            m_service->AddSampleCollector(name, collector);
        } else {
            SFLOW_LOG(m_category, kSource, kLogStep, "Add counter collector %s to interface %s",
                      collector.c_str(), name.c_str());
            m_service->AddCounterCollector(name, collector);
        }
    }
}
