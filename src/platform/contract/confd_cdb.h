// SPDX-License-Identifier: Apache-2.0
// Reads of the configuration database. Used inside a read session (QxConfdCdbSession), whose
// socket is the first argument of every call.
//
// A session sees the datastore as of its opening; a session opened while a change set is handled
// sees the datastore of that commit. Values come from the schema's order: an entry's or
// container's leaves, keys first, defaults filled in; a leaf without value and default has the type
// C_NOEXISTS. The caller releases the values received with confd_free_value.

#ifndef CONFD_CDB_H
#define CONFD_CDB_H

#include "confd_lib.h"

#ifdef __cplusplus
extern "C" {
#endif

// The datastore that a session reads.
enum cdb_db_type { CDB_RUNNING = 1 };

// How many entries the list at the path has, or CONFD_ERR: no such list or parent entry, or no
// session on this socket.
int cdb_num_instances(int sock, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// Reads `nobj` entries of the list at the path, from the `ix`th on in ascending byte order of the
// keys, the first `n` values of each, into `values` (n * nobj elements, entry after entry). An
// entry with fewer than n leaves is filled up with C_NOEXISTS. Returns the number of values per
// entry that the schema has, or CONFD_ERR: no such list, or fewer entries than asked for.
int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt, ...)
    __attribute__((format(printf, 6, 7)));

// Reads the first `n` values of the entry or container at the path. Returns the number of values
// that the schema has, or CONFD_ERR: the path has no such entry ("does not exist").
int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

// Reads the leaf at the path. Returns CONFD_OK, or CONFD_ERR: no such leaf or entry, or the leaf
// has neither value nor default ("does not exist"); `*value` is then left alone.
int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
