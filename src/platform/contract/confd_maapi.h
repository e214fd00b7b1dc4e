// SPDX-License-Identifier: Apache-2.0
// Writes into a configuration transaction, for data providers.

#ifndef CONFD_MAAPI_H
#define CONFD_MAAPI_H

#include "confd_lib.h"

#ifdef __cplusplus
extern "C" {
#endif

// Sets the leaf at the path in the transaction `thandle`. To be called from inside a callback that
// was given that transaction; `sock` is the connection's MAAPI socket.
// Path, type and value are checked against the schema at once: CONFD_OK, or CONFD_ERR with the
// reason in confd_lasterr(). The write reaches the transaction with the callback's answer; one
// whose transaction has ended meanwhile is dropped without an error.
int maapi_set_elem(int sock, int thandle, confd_value_t* value, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
