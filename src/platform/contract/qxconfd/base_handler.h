// SPDX-License-Identifier: Apache-2.0
// What every handler of the framework has in common.

#ifndef QXCONFD_BASE_HANDLER_H
#define QXCONFD_BASE_HANDLER_H

#include "confd_interface.h"

// The start phases of a process's database connection.
enum ELEM_CONFD_PHASE_ET { ELEM_CONFD_PHASE_0 = 0, ELEM_CONFD_PHASE_1 = 1, ELEM_CONFD_PHASE_2 = 2 };

namespace qxconfd {

class AppInterface;

class BaseHandler {
public:
    BaseHandler() = default;
    BaseHandler(const BaseHandler&) = delete;
    BaseHandler& operator=(const BaseHandler&) = delete;
    virtual ~BaseHandler() = default;

    // The connection came up and everything is registered; `phase` is the process's start phase.
    virtual void ConfdConnected(ELEM_CONFD_PHASE_ET /*phase*/) {}

    // The connection is gone. The framework reconnects by itself.
    virtual void ConfdDisconnected() {}

    // For the framework only: gives the handler the connection object, which outlives every later
    // call of the handler's operations.
    void SetConfdInterface(QxConfdInterface* confd) { m_confd = confd; }

protected:
    // The framework's connection object; null until the framework has been built with this handler.
    QxConfdInterface* m_confd = nullptr;
};

}  // namespace qxconfd

#endif
