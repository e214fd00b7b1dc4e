// SPDX-License-Identifier: Apache-2.0
#include "sflow_report.h"

#include <confd_lib.h>
#include <qxmw/qxmw.h>

#include <cstdio>
#include <cstdlib>

void EndWithFault(const char* function, const char* source, int line, EFaultText content)
{
    qxmw_print_backtrace();
    char text[kFaultTextSize] = {};
    if (content == EFaultText::ConfdError) std::snprintf(text, sizeof text, "%s", confd_lasterr());
    qxmw_gen_fault(1, function, source, line, text);
    std::exit(1);
}
