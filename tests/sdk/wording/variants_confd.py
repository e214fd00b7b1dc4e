# SPDX-License-Identifier: Apache-2.0
"""Wordings of the database's client API."""

LIB = "confd_lib.h"

CONFD = {
    "strings_of_char": [(LIB, "    unsigned char* ptr;", "    char* ptr;")],
    "strings_of_signed_char": [(LIB, "    unsigned char* ptr;", "    const signed char* ptr;")],
    "booleans_of_bool": [(LIB, "        int boolean;", "        bool boolean;")],
    # Anonymous types and plain numbers, as C headers have them.
    "value_without_a_tag": [(LIB, "struct confd_value {", "typedef struct {"),
                            (LIB, "};\ntypedef struct confd_value confd_value_t;", "} confd_value_t;")],
    "keypath_without_a_tag": [(LIB, "struct confd_hkeypath {", "typedef struct {"),
                              (LIB, "};\ntypedef struct confd_hkeypath confd_hkeypath_t;", "} confd_hkeypath_t;")],
    "type_of_a_value_as_number": [(LIB, "    enum confd_vtype type;", "    int type;")],
    "operations_by_typedef": [(LIB, "enum confd_iter_op {", "typedef enum {"),
                              (LIB, "    MOP_VALUE_SET = 4  // a leaf whose effective value changed; the new value is given\n};",
                               "    MOP_VALUE_SET = 4\n} confd_iter_op;")],
    "results_by_typedef_and_four": [(LIB, "enum confd_iter_ret {", "typedef enum {"),
                                    (LIB, "    ITER_UP = 4,        // the parent's next sibling\n"
                                     "    ITER_SUSPEND = 5\n};",
                                     "    ITER_UP = 4\n} confd_iter_ret;")],
    "no_fixed_width_integers": [(LIB, "#include <stdint.h>\n",
                                 "typedef unsigned int uint32_t;\ntypedef unsigned short uint16_t;\n"
                                 "typedef unsigned char uint8_t;\n")],
    "keypath_changeable": [(LIB, "int size, const confd_hkeypath_t* keypath", "int size, confd_hkeypath_t* keypath")],
    "reason_changeable": [(LIB, "const char* confd_lasterr(void)", "char* confd_lasterr(void)")],
    "registration_typed": [(LIB, "struct confd_daemon_ctx {\n    void* d_opaque;",
                            "#ifdef __cplusplus\n}\nclass QxConfdInterface;\nextern \"C\" {\n#endif\n"
                            "struct confd_daemon_ctx {\n    QxConfdInterface* d_opaque;")],
    "more_datastores": [("confd_cdb.h", "enum cdb_db_type { CDB_RUNNING = 1 };",
                         "typedef enum cdb_db_type { CDB_RUNNING = 1, CDB_STARTUP = 2 } cdb_db_type;")],
    "value_to_write_const": [("confd_maapi.h", "int thandle, confd_value_t* value", "int thandle, const confd_value_t* value")],
    "formats_not_checked": [("confd_cdb.h", "const char* fmt, ...) __attribute__((format(printf, 2, 3)));",
                             "const char* fmt, ...);")],
}
