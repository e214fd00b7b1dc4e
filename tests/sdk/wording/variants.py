# SPDX-License-Identifier: Apache-2.0
"""Other wordings of the platform's headers under which the daemon has to compile as it is.

A variant is a list of edits of the contract's headers: (header, text that stands there once, other text). Each is
something that a platform of the same meaning may well have written; its name says what.
"""

from variants_confd import CONFD
from variants_framework import FRAMEWORK
from variants_platform import PLATFORM

VARIANTS = {"as_it_is": [], **CONFD, **FRAMEWORK, **PLATFORM}

# Where a header declares or includes less, each source that uses what is left out is compiled alone: the others'
# includes must not help it.
ALONE = {
    "as_it_is": ["app", "app_main", "config_handler", "config_handler_apply", "config_handler_changes",
                 "config_handler_dispatch", "config_handler_readers", "report", "set_default"],
    "address_only_declared_by_the_service": ["config_handler_apply", "config_handler_changes"],
    "connection_only_declared_by_handlers": ["app", "config_handler", "config_handler_changes",
                                             "config_handler_dispatch", "set_default"],
    "context_without_includes": ["app"],
    "framework_only_declares_handlers": ["app"],
    "no_fixed_width_integers": ["config_handler_changes", "config_handler_dispatch", "set_default"],
}

# What the daemon does not take, so that the check is seen to fail: these must not compile.
REFUSED = {
    "session_without_socket": [("qxconfd/confd_interface.h", "int Socket() const", "int Descriptor() const")],
    "callbacks_of_other_names": [("qxos/context.h", "Callback* goActive;", "Callback* active;")],
    "collector_without_port": [("sflow/i_service.h", "address, std::uint16_t port,\n", "address,\n")],
}
