// SPDX-License-Identifier: Apache-2.0
// SFlowConfigHandler: recognises a changed node by its schema tag and routes it.

#include <confd_cdb.h>
#include <confd_lib.h>
#include <switch_schema.h>

#include <cstdint>
#include <string>

#include "sflow_config_handler.h"
#include "sflow_config_handler_internal.h"
#include "sflow_report.h"
#include "sflow_text.h"

namespace {

// The position of the changed node's schema element: 0 for a leaf, 1 for a list entry, whose keys
// come first; -1 when there is none.
int TagPosition(const confd_hkeypath_t& kp)
{
    for (int i = 0; i < kp.len; ++i) {
        if (kp.v[i][0].type == C_XMLTAG) return i;
    }
    return -1;
}

}  // namespace

// Positions are counted from the changed node. Values are taken in this function itself, so that a failed
// assertion names it.
confd_iter_ret SFlowConfigHandler::HandleCfg(confd_hkeypath_t* kp, confd_iter_op op,
                                             confd_value_t* /*old_value*/, confd_value_t* new_value)
{
    if (!m_mgrAvailable) {
        SFLOW_LOG(m_category, kSource, kLogNotice, "Manager is not available yet, wait for server found");
        return ITER_STOP;
    }
    if (zlog_level_enabled(m_category, kLogStep)) {
        char text[8192] = {};
        confd_pp_kpath(text, sizeof text, kp);
        SFLOW_LOG(m_category, kSource, kLogStep, "keypath: %s, op = %d", text, static_cast<int>(op));
    }
    const int i = TagPosition(*kp);
    if (i < 0) return ITER_CONTINUE;
    SFLOW_LOG(m_category, kSource, kLogStep, "Found tag in pos = %d", i);

    const std::uint32_t tag = CONFD_GET_XMLTAG(&(kp->v[i][0]));
    switch (tag) {
    case switch_schema::tag_collector:
        return HandleCfgCollector(Text(CONFD_GET_BUFPTR(&(kp->v[0][0]))), op);
    case switch_schema::tag_interface:
        return HandleCfgInterface(Text(CONFD_GET_BUFPTR(&(kp->v[0][0]))), op);
    case switch_schema::tag_sampling_rate:
    case switch_schema::tag_max_header_size:
    case switch_schema::tag_polling_interval:
        m_interfaces[Text(CONFD_GET_BUFPTR(&(kp->v[1][0])))].update = true;
        return ITER_CONTINUE;
    case switch_schema::tag_flow_sampling_collector:
    case switch_schema::tag_counter_sampling_collector: {
        const std::string collector = Text(CONFD_GET_BUFPTR(&(kp->v[0][0])));
        const std::string interface = Text(CONFD_GET_BUFPTR(&(kp->v[2][0])));
        const ECollector kind = tag == switch_schema::tag_flow_sampling_collector ? Sample : Counter;
        return HandleCfgInterfaceCollector(interface, op, kind, collector);
    }
    case switch_schema::tag_enabled: {
        const bool enabled = CONFD_GET_BOOL(new_value) != 0;
        return HandleCfgEnabled(Text(CONFD_GET_BUFPTR(&(kp->v[1][0]))), enabled);
    }
    case switch_schema::tag_ipv4:
    case switch_schema::tag_ip:
        if (kp->v[1][0].type == C_XMLTAG) {  // the agent's or the management interface's address
            QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
            return HandleCfgAgent(session.Socket());
        }
        [[fallthrough]];  // a collector's
    case switch_schema::tag_datagram_size:
    case switch_schema::tag_port: {
        QxConfdCdbSession session(*m_confd, CDB_RUNNING, true);
        const std::string name = Text(CONFD_GET_BUFPTR(&(kp->v[1][0])));
        collector_st collector;
        if (!GetCollector(session.Socket(), name, collector))
            EndWithFault(__func__, kSource, __LINE__, EFaultText::Empty);
        m_collectors[name].send = m_collectors[name].enabled;
        return ITER_CONTINUE;
    }
    default:
        SFLOW_LOG(m_category, kSource, kLogNotice, "Ignoring: %d", static_cast<int>(tag));
        return ITER_CONTINUE;
    }
}
