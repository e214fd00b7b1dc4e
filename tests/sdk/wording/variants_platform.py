# SPDX-License-Identifier: Apache-2.0
"""Wordings of qxos, qxmw, nettypes, sflow and the log."""

CONTEXT = "qxos/context.h"
SERVICE = "sflow/i_service.h"
ADDRESS = "nettypes/ipv4_addr.h"
QXMW = "qxmw/qxmw.h"

RECORD = "        Callback* goActive;\n        Callback* goStandby;\n        Callback* reserved[3];\n"
BUILD = "static std::unique_ptr<IService> Build(Notice found, Notice lost);"
NOTICE = "using Notice = std::pair<std::function<void(boost::any)>, boost::any>;"
INSTALLED = "extern Context* the_context;"

PLATFORM = {
    # The record of the callbacks.
    "callbacks_all_named": [(CONTEXT, RECORD, "        Callback* goActive;\n        Callback* goStandby;\n"
                             "        Callback* goOffline;\n        Callback* goMaintenance;\n"
                             "        Callback* shutDown;\n")],
    "callbacks_in_another_order": [(CONTEXT, RECORD, "        Callback* reserved[3];\n        Callback* goStandby;\n"
                                    "        Callback* goActive;\n")],
    "callbacks_with_a_constructor": [(CONTEXT, RECORD, "        explicit HaStateChangeCallbacks() : goActive(nullptr),"
                                      " goStandby(nullptr) {}\n        Callback* goActive;\n"
                                      "        Callback* goStandby;\n        Callback* others[3] = {};\n")],
    "callbacks_changeable": [(CONTEXT, "signature, const HaStateChangeCallbacks& callbacks",
                              "signature, HaStateChangeCallbacks& callbacks")],
    "callbacks_by_value": [(CONTEXT, "signature, const HaStateChangeCallbacks& callbacks",
                            "signature, HaStateChangeCallbacks callbacks")],
    # The context.
    "context_owned": [(CONTEXT, INSTALLED, "extern std::unique_ptr<Context> the_context;")],
    "context_not_virtual": [(CONTEXT, "    virtual ~Context();", "    ~Context();")],
    "context_without_includes": [(CONTEXT, '#include "../qxmw/qxmw.h"\n#include "callback.h"\n',
                                  '#include "callback.h"\nstruct qxmw;\ntypedef struct qxmw qxmw_t;\n'
                                  "struct qxmw_process_signature;\n"
                                  "typedef struct qxmw_process_signature qxmw_process_signature_t;\n")],
    "callback_payload_by_value": [("qxos/callback.h", "explicit Callback(const boost::any& payload)",
                                   "explicit Callback(boost::any payload)")],
    # The middleware.
    "signature_shorter": [(QXMW, "    char name[64];", "    char name[16];")],
    "signature_of_bytes": [(QXMW, "    char name[64];", "    unsigned char name[32];")],
    "trace_by_string": [(QXMW, "#include <zlog.h>\n", "#include <zlog.h>\n\n#include <string>\n"),
                        (QXMW, "zlog_category_t* qxmw_trace_init(qxmw_t* qxmw, const char* name);",
                         "}\nzlog_category_t* qxmw_trace_init(qxmw_t* qxmw, const std::string& name);\nextern \"C\" {"),
                        ],
    "fault_formats": [(QXMW, "int line, const char* text);", "int line, const char* format, ...);")],
    "fault_of_unsigned": [(QXMW, "void qxmw_gen_fault(int kind,", "void qxmw_gen_fault(unsigned kind,"),
                          (QXMW, "int line, const char* text);", "unsigned line, char* text);")],
    # Addresses.
    "address_text_not_const": [(ADDRESS, "virtual std::string to_string() const", "virtual std::string to_string()")],
    "address_text_not_virtual": [(ADDRESS, "virtual std::string to_string() const", "std::string to_string() const")],
    "address_of_many": [(ADDRESS, "explicit IPv4Addr(std::uint32_t word) : m_word(word) {}",
                         "IPv4Addr(in_addr_t word = 0) : m_word(word) {}\n"
                         "    IPv4Addr(const in_addr& address) : m_word(address.s_addr) {}\n"
                         "    IPv4Addr(const std::string& text) : m_word(inet_addr(text.c_str())) {}")],
    "address_only_declared_by_the_service": [(SERVICE, '#include "../nettypes/ipv4_addr.h"\n',
                                              "namespace nettypes {\nclass IPv4Addr;\n}\n")],
    "address_changeable": [(SERVICE, "AddCollector(const std::string& name, const nettypes::IPv4Addr& address",
                            "AddCollector(const std::string& name, nettypes::IPv4Addr& address"),
                           (SERVICE, "SetAgentAddress(const nettypes::IPv4Addr& address)",
                            "SetAgentAddress(nettypes::IPv4Addr& address)")],
    # The service.
    "service_plain_pointer": [(SERVICE, BUILD, "static IService* Build(Notice found, Notice lost);")],
    "service_by_reference": [(SERVICE, BUILD,
                              "static std::unique_ptr<IService> Build(const Notice& found, const Notice& lost);")],
    "service_by_moved_notices": [(SERVICE, BUILD, "static IService* Build(Notice&& found, Notice&& lost);")],
    "notice_by_reference": [(SERVICE, NOTICE,
                             "using Notice = std::pair<std::function<void(const boost::any&)>, boost::any>;")],
    "service_answers": [(SERVICE, "virtual void AddCollector", "virtual int AddCollector"),
                        (SERVICE, "virtual void DeleteCollector", "virtual int DeleteCollector"),
                        (SERVICE, "virtual void UpdateInterface", "virtual bool UpdateInterface"),
                        (SERVICE, "virtual void UnsetInterface", "virtual bool UnsetInterface"),
                        (SERVICE, "virtual void SetAgentAddress", "virtual bool SetAgentAddress")],
}
