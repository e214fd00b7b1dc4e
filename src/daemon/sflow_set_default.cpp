// SPDX-License-Identifier: Apache-2.0
#include "sflow_set_default.h"

#include <confd_lib.h>
#include <confd_maapi.h>
#include <qxconfd/confd_interface.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "sflow_report.h"
#include "sflow_text.h"

namespace {

constexpr char kSource[] = "src/daemon/sflow_set_default";
constexpr int kPathSize = 8192;

struct default_rate_st {
    const char* type;  // what the name of an interface of this class begins with
    int rate;
};

// The first match wins; a null name ends the table.
constexpr default_rate_st kDefaultRates[] = {
    {"gigabit-ethernet", 8192},           {"ten-gigabit-ethernet", 20480},
    {"twenty-five-g-ethernet", 51200},    {"forty-gigabit-ethernet", 81920},
    {"hundred-gigabit-ethernet", 204800}, {nullptr, 0},
};
constexpr int kOtherRate = 4096;

int DefaultRate(const char* interface)
{
    for (const default_rate_st* entry = kDefaultRates; entry->type != nullptr; ++entry) {
        if (std::strncmp(interface, entry->type, std::strlen(entry->type)) == 0) return entry->rate;
    }
    return kOtherRate;
}

}  // namespace

SFlowSetDefault::SFlowSetDefault(zlog_category_t* category)
    : qxconfd::DataHandler(false, true, false, false, false, true, false), m_setRate(category)
{
    m_callpoints.push_back(&m_setRate);
}

std::vector<qxconfd::DataHandler::Callpoint*>& SFlowSetDefault::GetCallpoints() { return m_callpoints; }

SFlowSetDefault::SetRateCallpoint::SetRateCallpoint(zlog_category_t* category) : m_category(category) {}

int SFlowSetDefault::SetRateCallpoint::SetElemCallback(confd_trans_ctx* /*trans*/, confd_hkeypath_t* keypath,
                                                       confd_value_t* /*value*/)
{
    if (zlog_level_enabled(m_category, kLogStep)) {
        char path[kPathSize] = {};
        confd_pp_kpath(path, kPathSize, keypath);
        SFLOW_LOG(m_category, kSource, kLogStep, "%s", path);
    }
    return CONFD_OK;
}

int SFlowSetDefault::SetRateCallpoint::CreateCallback(confd_trans_ctx* trans, confd_hkeypath_t* keypath)
{
    char path[kPathSize] = {};
    confd_pp_kpath(path, kPathSize, keypath);
    SFLOW_LOG(m_category, kSource, kLogStep, "%s", path);
    const std::string leaf = std::string(path) + "/default-sampling-rate";

    const std::string interface = Text(CONFD_GET_BUFPTR(&(keypath->v[0][0])));
    SFLOW_LOG(m_category, kSource, kLogStep, "Check interface %s type", interface.c_str());
    const int rate = DefaultRate(interface.c_str());

    confd_value_t value;
    CONFD_SET_UINT32(&value, static_cast<std::uint32_t>(rate));
    SFLOW_LOG(m_category, kSource, kLogDetail, "Interface %s: rate = %d", interface.c_str(), rate);

    auto* confd = static_cast<QxConfdInterface*>(trans->dx->d_opaque);
    if (maapi_set_elem(confd->MaapiSocket(), trans->thandle, &value, "%s", leaf.c_str()) != CONFD_OK)
        EndWithFault(__func__, kSource, __LINE__, EFaultText::ConfdError);
    return CONFD_OK;
}

int SFlowSetDefault::SetRateCallpoint::RemoveCallback(confd_trans_ctx* /*trans*/, confd_hkeypath_t* keypath)
{
    if (zlog_level_enabled(m_category, kLogStep)) {
        char path[kPathSize] = {};
        confd_pp_kpath(path, kPathSize, keypath);
        SFLOW_LOG(m_category, kSource, kLogStep, "%s", path);
    }
    return CONFD_OK;
}

const char* SFlowSetDefault::SetRateCallpoint::GetCallpointName() { return "sflow-set-sampling-rate"; }
