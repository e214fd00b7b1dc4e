// SPDX-License-Identifier: Apache-2.0
// Which of sFlow's reasons stands for a drop of the kernel's. By the kernel's names of reasons, not by their
// numbers, and where one name stands for several of sFlow's reasons, by the function, the route or the
// packet. What exports drops uses it.

#ifndef CAPTURE_DROPS_CODE_H
#define CAPTURE_DROPS_CODE_H

#include "capture/drop_source.h"
#include "wire/drop_reason.h"

namespace capture {

/// Looks at the reason's name, function, route error, EtherType and header. kUnknown for what the kernel
/// gives no reason for; a name that came after this was written gets what its beginning allows ("TCP_...":
/// kUnknownL4).
[[nodiscard]] wire::DropReason CodeOf(const Drop& drop);

}  // namespace capture

#endif
