// SPDX-License-Identifier: Apache-2.0
/* The contract's C headers in C: each stands alone (see CMakeLists.txt), and all together serve a C source. */

#include <confd_cdb.h>
#include <confd_lib.h>
#include <confd_maapi.h>
#include <qxmw/qxmw.h>
#include <zlog.h>

/* Every macro and type is written out once. */
int UseAll(zlog_category_t* category, confd_hkeypath_t* keypath, struct confd_trans_ctx* transaction, int sock);
int UseAll(zlog_category_t* category, confd_hkeypath_t* keypath, struct confd_trans_ctx* transaction, int sock)
{
    static const qxmw_process_signature_t signature = {"c"};
    enum confd_iter_op operation = MOP_CREATED;
    enum confd_iter_ret result = ITER_SUSPEND;
    enum confd_find_next_type next = CONFD_FIND_NEXT;
    enum cdb_db_type database = CDB_RUNNING;
    struct confd_daemon_ctx* registration = transaction->dx;
    char text[64];
    confd_value_t v[2];

    CONFD_SET_NOEXISTS(&v[0]);
    CONFD_SET_UINT32(&v[1], 7);
    if (zlog_level_enabled(category, 10)) {
        confd_pp_kpath(text, sizeof text, keypath);
        zlog(category, "c", 1, "UseAll", 6, __LINE__, 10, "%s", text);
    }
    if (cdb_num_instances(sock, "/a") < 0 || cdb_get_objects(sock, v, 1, 0, 1, "/%s", "a") < 0 ||
        cdb_get_object(sock, v, 1, "/a") < 0 || cdb_get(sock, v, "/a/b") != CONFD_OK)
        qxmw_gen_fault(1, "UseAll", __FILE__, __LINE__, confd_lasterr());
    confd_free_value(&v[0]);
    qxmw_print_backtrace();
    return (int)CONFD_GET_XMLTAG(&keypath->v[0][0]) + (int)CONFD_GET_BUFPTR(&v[0])[0] + CONFD_GET_BOOL(&v[0]) +
           CONFD_GET_UINT16(&v[0]) + (int)CONFD_GET_UINT32(&v[0]) + (int)CONFD_GET_IPV4(&v[0]).s_addr +
           CONFD_GET_IPV4_AND_PLEN(&v[0]).len + (int)operation + (int)result + (int)next + (int)database +
           (registration->d_opaque != 0) + (signature.name[0] != 0) +
           maapi_set_elem(sock, transaction->thandle, &v[1], "%s", text);
}
