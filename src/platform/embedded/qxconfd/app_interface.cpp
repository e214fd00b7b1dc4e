// SPDX-License-Identifier: Apache-2.0
// The framework object as the contract declares it; framework*.cpp implement it.

#include <qxconfd/app_interface.h>

#include <stdexcept>

#include "platform/embedded/qxconfd/framework.h"

namespace qxconfd {

AppInterface::AppInterface(qxmw_t*, zlog_category_t*, const std::string& application,
                           const std::vector<ConfigHandler*>& configHandlers,
                           const std::vector<ActionHandler*>& actionHandlers,
                           const std::vector<DataHandler*>& dataHandlers, ELEM_CONFD_PHASE_ET startPhase,
                           int options)
{
    if (options != 0) throw std::invalid_argument("qxconfd::AppInterface: options must be 0");
    m_impl = std::make_unique<Impl>(embedded::TheRuntime(), application,
                                    Impl::Handlers{configHandlers, actionHandlers, dataHandlers}, startPhase);
}

AppInterface::~AppInterface() = default;

void AppInterface::Dispose() { delete this; }

}  // namespace qxconfd
