// SPDX-License-Identifier: Apache-2.0
// A handler of operator actions. The framework takes a list of them; no operation is declared
// because no process of this system registers one.

#ifndef QXCONFD_ACTION_HANDLER_H
#define QXCONFD_ACTION_HANDLER_H

#include "base_handler.h"

namespace qxconfd {

class ActionHandler : public BaseHandler {};

}  // namespace qxconfd

#endif
