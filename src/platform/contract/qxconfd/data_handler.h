// SPDX-License-Identifier: Apache-2.0
// A data provider: callbacks that the database makes while a transaction is edited.

#ifndef QXCONFD_DATA_HANDLER_H
#define QXCONFD_DATA_HANDLER_H

#include <vector>

#include "base_handler.h"

namespace qxconfd {

class DataHandler : public BaseHandler {
public:
    // The operations of one callpoint. `keypath` is the node's that the operation is about. Each
    // returns CONFD_OK or CONFD_ERR; one that is not overridden is not served: CONFD_ERR.
    class Callpoint {
    public:
        Callpoint() = default;
        Callpoint(const Callpoint&) = delete;
        Callpoint& operator=(const Callpoint&) = delete;
        virtual ~Callpoint() = default;

        virtual int ExistsOptionalCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int GetNextCallback(confd_trans_ctx*, confd_hkeypath_t*, long /*next*/) { return CONFD_ERR; }
        virtual int GetElemCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int SetElemCallback(confd_trans_ctx*, confd_hkeypath_t*, confd_value_t* /*value*/)
        {
            return CONFD_ERR;
        }
        virtual int CreateCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int RemoveCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int NumInstancesCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int GetObjectCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }
        virtual int GetNextObjectCallback(confd_trans_ctx*, confd_hkeypath_t*, long /*next*/)
        {
            return CONFD_ERR;
        }
        virtual int FindNextObjectCallback(confd_trans_ctx*, confd_hkeypath_t*, confd_find_next_type,
                                           confd_value_t* /*keys*/, int /*count*/)
        {
            return CONFD_ERR;
        }
        virtual int WriteAllCallback(confd_trans_ctx*, confd_hkeypath_t*) { return CONFD_ERR; }

        // The name that the schema gives the callpoint.
        virtual const char* GetCallpointName() = 0;
    };

    // Which groups of callbacks the framework registers for the handler's callpoints.
    DataHandler(bool reads, bool writes, bool counts, bool objects, bool finds, bool attachMaapi,
                bool writeAll)
        : m_flags{reads, writes, counts, objects, finds, attachMaapi, writeAll}
    {
    }

    struct Flags {
        bool reads;        // exists, get-next, get-elem
        bool writes;       // set-elem, create, remove
        bool counts;       // num-instances
        bool objects;      // get-object, get-next-object
        bool finds;        // find-next-object
        bool attachMaapi;  // maapi_set_elem may be called from the callbacks
        bool writeAll;     // write-all
    };
    const Flags& RegistrationFlags() const { return m_flags; }

    // Around the callbacks of one transaction. CONFD_OK lets it go on.
    virtual int TransactionInit(confd_trans_ctx*) { return CONFD_OK; }
    virtual int TransactionFinish(confd_trans_ctx*) { return CONFD_OK; }

    // The callpoints to register; read when the framework connects.
    virtual std::vector<Callpoint*>& GetCallpoints() = 0;

private:
    Flags m_flags;
};

}  // namespace qxconfd

#endif
