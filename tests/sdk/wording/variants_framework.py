# SPDX-License-Identifier: Apache-2.0
"""Wordings of qxconfd: handlers, the framework object, the connection and its sessions."""

APP = "qxconfd/app_interface.h"
BASE = "qxconfd/base_handler.h"
CONFIG = "qxconfd/config_handler.h"
DATA = "qxconfd/data_handler.h"
CONNECTION = "qxconfd/confd_interface.h"

PHASES = "enum ELEM_CONFD_PHASE_ET { ELEM_CONFD_PHASE_0 = 0, ELEM_CONFD_PHASE_1 = 1, ELEM_CONFD_PHASE_2 = 2 };"
LISTS = [(APP, "const std::vector<ConfigHandler*>&", "{0}ConfigHandler*{1}"),
         (APP, "const std::vector<ActionHandler*>&", "{0}ActionHandler*{1}"),
         (APP, "const std::vector<DataHandler*>&", "{0}DataHandler*{1}")]


def lists(before, after, header):
    return ([(name, old, new.format(before, after)) for name, old, new in LISTS]
            + [(APP, "#include <memory>\n", f"#include <{header}>\n#include <memory>\n")])


FRAMEWORK = {
    "phase_of_other_words": [(BASE, PHASES, "enum ELEM_CONFD_PHASE_ET { CONFD_PHASE_BOOT, CONFD_PHASE_EARLY, "
                              "CONFD_PHASE_LATE };")],
    "phase_scoped": [(BASE, PHASES, "enum class ELEM_CONFD_PHASE_ET : int { zero, one, two };")],
    "phase_number": [(BASE, PHASES, "typedef int ELEM_CONFD_PHASE_ET;")],
    "handlers_in_lists": lists("const std::list<", ">&", "list"),
    "handlers_by_value": lists("std::vector<", ">", "set"),
    "handlers_moved": lists("std::vector<", ">&&", "set"),
    "handlers_in_sets": lists("const std::set<", ">&", "set"),
    "handlers_in_braces": lists("std::initializer_list<", ">", "initializer_list"),
    "framework_of_plain_types": [(APP, "const std::string& application", "const char* application"),
                                 (APP, "startPhase, int options);", "startPhase, unsigned options = 0);")],
    "framework_destructor_public": [(APP, "protected:\n    // Before Dispose: so are their slots.\n", "")],
    "framework_only_declares_handlers": [(APP, '#include "action_handler.h"\n#include "config_handler.h"\n'
                                          '#include "data_handler.h"\n\nnamespace qxconfd {\n',
                                          '#include "base_handler.h"\n\nnamespace qxconfd {\n\nclass ActionHandler;\n'
                                          "class ConfigHandler;\nclass DataHandler;\n")],
    # The connection.
    "maapi_socket_not_const": [(CONNECTION, "MaapiSocket() const", "MaapiSocket()")],
    "connected_not_const": [(CONNECTION, "IsConnected() const", "IsConnected()")],
    "connection_only_declared_by_handlers": [(BASE, '#include "confd_interface.h"\n',
                                              '#include "../confd_lib.h"\n\nclass QxConfdInterface;\n')],
    "session_only_to_derive_from": [(CONNECTION, "    QxConfdCdbSessionBase(QxConfdInterface& confd,",
                                     "protected:\n    QxConfdCdbSessionBase(QxConfdInterface& confd,"),
                                    (CONNECTION, "    QxConfdCdbSessionBase(const QxConfdCdbSessionBase&) = delete;",
                                     "public:\n    QxConfdCdbSessionBase(const QxConfdCdbSessionBase&) = delete;")],
    "session_flag_with_a_default": [(CONNECTION, "bool subscriptionLock)\n        :",
                                     "bool subscriptionLock = false,\n                          int timeout = 0)\n        :"),
                                    ],
    "socket_not_const": [(CONNECTION, "int Socket() const", "int Socket()")],
    # Handlers.
    "subscription_unsigned": [(CONFIG, "    std::int32_t priority;", "    std::uint32_t priority;"),
                              (CONFIG, "    std::int32_t ns; ", "    std::uint32_t ns; "),
                              (CONFIG, "    std::int32_t flags; ", "    std::uint32_t flags; ")],
    "subscription_with_string": [(CONFIG, "    const char* path; ", "    std::string path; "),
                                 (CONFIG, "#include <vector>\n", "#include <string>\n#include <vector>\n")],
    "subscription_with_a_constructor": [(CONFIG, "struct SubscriptionPoint {\n",
                                         "struct SubscriptionPoint {\n"
                                         "    using Iterate = std::function<confd_iter_ret(confd_hkeypath_t*, "
                                         "confd_iter_op,\n        confd_value_t*, confd_value_t*)>;\n"
                                         "    SubscriptionPoint(int p, int n, const char* path_, int f, Iterate c)\n"
                                         "        : priority(p), ns(n), path(path_), flags(f), callback(c) {}\n")],
    "destructors_without_throw": [(BASE, "    virtual ~BaseHandler() = default;", "    virtual ~BaseHandler() throw() {}")],
    "data_flags_as_numbers": [(DATA, "DataHandler(bool reads, bool writes, bool counts, bool objects, bool finds, "
                               "bool attachMaapi,\n                bool writeAll)",
                               "DataHandler(int reads, int writes, int counts, int objects, int finds, "
                               "int attachMaapi,\n                int writeAll)"),
                              (DATA, ": m_flags{reads, writes, counts, objects, finds, attachMaapi, writeAll}",
                               ": m_flags{reads != 0, writes != 0, counts != 0, objects != 0, finds != 0,\n"
                               "                  attachMaapi != 0, writeAll != 0}")],
}
