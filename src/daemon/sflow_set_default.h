// SPDX-License-Identifier: Apache-2.0
// Gives every new interface entry its default sampling rate.
//
// A data provider with one callpoint: when a transaction creates an interface entry, it writes the
// entry's default-sampling-rate, chosen by the speed class that the interface's name begins with,
// into the same transaction. Shares nothing with the configuration handler. Created by SFlowApp,
// called by the framework.

#ifndef DAEMON_SFLOW_SET_DEFAULT_H
#define DAEMON_SFLOW_SET_DEFAULT_H

#include <confd_lib.h>
#include <qxconfd/data_handler.h>
#include <zlog.h>

#include <vector>

class SFlowSetDefault : public qxconfd::DataHandler {
public:
    explicit SFlowSetDefault(zlog_category_t* category);

    std::vector<qxconfd::DataHandler::Callpoint*>& GetCallpoints() override;

    class SetRateCallpoint : public qxconfd::DataHandler::Callpoint {
    public:
        explicit SetRateCallpoint(zlog_category_t* category);

        // Accepts a change of an entry's leaf as it is.
        int SetElemCallback(confd_trans_ctx* trans, confd_hkeypath_t* keypath, confd_value_t* value) override;

        // Writes the default of the entry just created. Ends the process with a fault if the write is
        // refused.
        int CreateCallback(confd_trans_ctx* trans, confd_hkeypath_t* keypath) override;

        // Accepts the removal of an entry as it is.
        int RemoveCallback(confd_trans_ctx* trans, confd_hkeypath_t* keypath) override;

        const char* GetCallpointName() override;

    private:
        zlog_category_t* m_category;  // not owned
    };

private:
    std::vector<qxconfd::DataHandler::Callpoint*> m_callpoints;  // holds the address of m_setRate only
    SetRateCallpoint m_setRate;
};

#endif
