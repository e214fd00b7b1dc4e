// SPDX-License-Identifier: Apache-2.0
// Gives the other parts of the embedded platform and their tests access to a process context.

#ifndef PLATFORM_EMBEDDED_QXOS_CONTEXT_ACCESS_H
#define PLATFORM_EMBEDDED_QXOS_CONTEXT_ACCESS_H

#include <qxos/context.h>

namespace embedded {
struct Runtime;
}

namespace qxos {

class ContextAccess {
public:
    static embedded::Runtime& RuntimeOf(Context& context);
    static const Context::HaStateChangeCallbacks& CallbacksOf(Context& context);
};

}  // namespace qxos

#endif
