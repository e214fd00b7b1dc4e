// SPDX-License-Identifier: Apache-2.0
// The configuration database's client API: values, keypaths, iteration and errors.
//
// Declares what every user of the database shares; reads are in confd_cdb.h, transaction writes
// in confd_maapi.h. Declares nothing of how a platform implements them. C and C++.
//
// Rules that hold for the whole client API:
//   - Calls are made on the thread of the process's server loop only.
//   - A path argument is a printf format with its arguments. Paths have no prefixes, keys stand in
//     braces ("/config/oam/sflow/interface{eth1}": everything up to the closing brace is the key),
//     and "[n]" after a list is its nth entry in ascending byte order of the keys, from 0.
//   - A call that fails returns a negative result, and confd_lasterr() then gives its reason.

#ifndef CONFD_LIB_H
#define CONFD_LIB_H

#include <assert.h>
#include <netinet/in.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Results of the calls that return no count.
#define CONFD_OK 0
#define CONFD_ERR (-1)

// The type tag of a value.
enum confd_vtype {
    C_NOEXISTS = 1,      // no value: a leaf without one, or the end of a keypath position
    C_XMLTAG = 2,        // a schema element, in keypaths only
    C_BUF = 3,           // a string
    C_BOOL = 4,          // a boolean
    C_UINT16 = 5,        // an unsigned 16-bit integer
    C_UINT32 = 6,        // an unsigned 32-bit integer
    C_IPV4 = 7,          // an IPv4 address
    C_IPV4_AND_PLEN = 8  // an IPv4 address, host bits kept, with its prefix length
};

// A schema element: the tag generated from its name, and the hash of its module's namespace.
struct xml_tag {
    uint32_t tag;
    uint32_t ns;
};

// A string. `size` bytes without the terminator, and a NUL at ptr[size].
struct confd_buf {
    unsigned char* ptr;
    unsigned int size;
};

struct confd_ipv4_prefix {
    struct in_addr ip;  // network byte order
    uint8_t len;        // bits, 0 to 32
};

// One typed value. Only C_BUF owns memory: the caller that received the value from a read releases it with
// confd_free_value; the values of a keypath belong to the maker of the keypath.
struct confd_value {
    enum confd_vtype type;
    union {
        struct xml_tag xmltag;
        struct confd_buf buf;
        int boolean;  // zero is false
        uint16_t u16;
        uint32_t u32;
        struct in_addr ip;  // network byte order
        struct confd_ipv4_prefix ipv4prefix;
    } val;
};
typedef struct confd_value confd_value_t;

// Access to a value's content. Each stops the process with a failed assertion that names the
// argument as it was written when the value has another type.
#define CONFD_GET_XMLTAG(V) (assert((V)->type == C_XMLTAG), (V)->val.xmltag.tag)
#define CONFD_GET_BUFPTR(V) (assert((V)->type == C_BUF), (V)->val.buf.ptr)
#define CONFD_GET_BOOL(V) (assert((V)->type == C_BOOL), (V)->val.boolean)
#define CONFD_GET_UINT16(V) (assert((V)->type == C_UINT16), (V)->val.u16)
#define CONFD_GET_UINT32(V) (assert((V)->type == C_UINT32), (V)->val.u32)
#define CONFD_GET_IPV4(V) (assert((V)->type == C_IPV4), (V)->val.ip)
#define CONFD_GET_IPV4_AND_PLEN(V) (assert((V)->type == C_IPV4_AND_PLEN), (V)->val.ipv4prefix)

// Makes `*V` the given 32-bit unsigned integer, or empty. What it held before is not released.
#define CONFD_SET_UINT32(V, X) ((V)->type = C_UINT32, (V)->val.u32 = (X))
#define CONFD_SET_NOEXISTS(V) ((V)->type = C_NOEXISTS)

// Releases what a value returned by a read owns and leaves it empty (C_NOEXISTS). Harmless on a
// value that owns nothing.
void confd_free_value(confd_value_t* value);

#define MAXDEPTH 20  // positions of a keypath
#define MAXKEYLEN 9  // values of one position

// The path of one node. v[0] is the node itself, v[len - 1] the root. A schema element takes one
// position with a C_XMLTAG as its first value; a list entry's keys take the position below (one
// index before) their list's element. The values of a position end at the first C_NOEXISTS.
struct confd_hkeypath {
    confd_value_t v[MAXDEPTH][MAXKEYLEN];
    int len;
};
typedef struct confd_hkeypath confd_hkeypath_t;

// Writes the path as text, in the form that every path argument accepts, into `buffer` of `size`
// bytes, cut and NUL-terminated when it is longer. Returns the full text's length without the
// terminator, or CONFD_ERR for a tag that no schema element has (nothing but a NUL is written).
int confd_pp_kpath(char* buffer, int size, const confd_hkeypath_t* keypath);

// The reason of the last failed call, never null, valid until the next call of this API.
const char* confd_lasterr(void);

// What happened to a node that a diff iteration reports.
enum confd_iter_op {
    MOP_CREATED = 1,   // a list entry or presence container that was not there before
    MOP_DELETED = 2,   // one that is gone, or a leaf that lost its value
    MOP_MODIFIED = 3,  // a list entry or presence container with a change below it
    MOP_VALUE_SET = 4  // a leaf whose effective value changed; the new value is given
};

// What an iteration's callback wants next. Any value from 5 on suspends the iteration; the
// framework then resumes it with the next sibling.
enum confd_iter_ret {
    ITER_STOP = 1,      // no further node of this subscription point
    ITER_RECURSE = 2,   // the node's children next
    ITER_CONTINUE = 3,  // the node's next sibling
    ITER_UP = 4,        // the parent's next sibling
    ITER_SUSPEND = 5
};

// The kinds of a data provider's find-next request.
enum confd_find_next_type { CONFD_FIND_NEXT = 0, CONFD_FIND_SAME_OR_NEXT = 1 };

// A data provider's registration, as a transaction refers to it.
struct confd_daemon_ctx {
    void* d_opaque;  // the framework keeps its QxConfdInterface here
};

// One transaction, as a data provider's callbacks see it. Valid during the callback.
struct confd_trans_ctx {
    struct confd_daemon_ctx* dx;
    int thandle;  // the transaction's handle, for maapi_set_elem
};

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
