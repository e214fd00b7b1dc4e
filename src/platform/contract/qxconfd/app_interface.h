// SPDX-License-Identifier: Apache-2.0
// The framework object: owns the process's connections to the configuration database and calls
// the handlers.

#ifndef QXCONFD_APP_INTERFACE_H
#define QXCONFD_APP_INTERFACE_H

#include <memory>
#include <string>
#include <vector>

#include "../qxmw/qxmw.h"
#include "action_handler.h"
#include "config_handler.h"
#include "data_handler.h"

namespace qxconfd {

class AppInterface {
public:
    // Builds the framework over the handlers, which must outlive it; connects once the server loop
    // runs, and for ever again when the connection goes. `startPhase` is given to ConfdConnected;
    // `options` must be 0. Needs the process context (qxos::the_context) to be installed.
    AppInterface(qxmw_t* qxmw, zlog_category_t* category, const std::string& application,
                 const std::vector<ConfigHandler*>& configHandlers,
                 const std::vector<ActionHandler*>& actionHandlers,
                 const std::vector<DataHandler*>& dataHandlers, ELEM_CONFD_PHASE_ET startPhase, int options);
    AppInterface(const AppInterface&) = delete;
    AppInterface& operator=(const AppInterface&) = delete;

protected:
    // Before Dispose: so are their slots.
    virtual ~AppInterface();

public:
    // Disconnects, calls no handler any more, and deletes this object.
    virtual void Dispose();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qxconfd

#endif
