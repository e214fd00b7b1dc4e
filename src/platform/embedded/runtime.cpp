// SPDX-License-Identifier: Apache-2.0
// The runtime's paths and its gate.

#include "platform/embedded/runtime.h"

#include <qxos/context.h>

#include <stdexcept>

#include "base/directories.h"
#include "platform/embedded/qxos/context_access.h"

namespace embedded {

void Gate::Open()
{
    if (std::exchange(m_open, true)) return;
    const auto listeners = m_listeners;  // a copy: the calls may add or remove listeners
    for (Listener* listener : listeners) listener->GateOpened();
}

void Gate::Close(bool tell)
{
    if (!std::exchange(m_open, false)) return;
    const auto listeners = m_listeners;
    for (Listener* listener : listeners) listener->GateClosed(tell);
}

Runtime::Runtime(std::string processName)
    : process(std::move(processName)),
      cdbSocket(base::RunDirectory() + "/cdb.sock"),
      managerSocket(base::RunDirectory() + "/manager.sock"),
      timers(base::MakeTimers(loop))
{
}

Runtime& TheRuntime()
{
    if (qxos::the_context == nullptr)
        throw std::logic_error("no process context is installed; set qxos::the_context first");
    return qxos::ContextAccess::RuntimeOf(*qxos::the_context);
}

}  // namespace embedded
