// SPDX-License-Identifier: Apache-2.0
// The subscriber to the sFlow configuration.
//
// Follows "/config/oam/sflow" and the management address, loads the whole configuration when the
// sFlow manager is found, stages what each commit changes and, at the commit's end, turns it into
// calls on the sFlow service. It keeps no copy of the configuration, and does nothing while the
// manager is away. Created by SFlowApp, called by the framework and by the service client, always
// on the loop's thread.
//
// A failure of the database that the configuration's rules exclude ends the process with a fault;
// a value of a type other than the schema's, with a failed assertion.

#ifndef DAEMON_SFLOW_CONFIG_HANDLER_H
#define DAEMON_SFLOW_CONFIG_HANDLER_H

#include <confd_cdb.h>
#include <confd_lib.h>
#include <qxconfd/confd_interface.h>
#include <qxconfd/config_handler.h>
#include <sflow/i_service.h>
#include <zlog.h>

#include <boost/any.hpp>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sflow_config_handler_records.h"

// A read session that lasts for one scope.
class QxConfdCdbSession : public QxConfdCdbSessionBase {
public:
    QxConfdCdbSession(QxConfdInterface& confd, cdb_db_type database, bool flag)
        : QxConfdCdbSessionBase(confd, database, flag)
    {
    }
    ~QxConfdCdbSession() override = default;
};

class SFlowConfigHandler : public qxconfd::ConfigHandler {
public:
    // Builds the service client and the subscription points; does not call the database.
    explicit SFlowConfigHandler(zlog_category_t* category);
    ~SFlowConfigHandler() override;

    // Stages the whole configuration, read through the session `socket`, and sends the agent address.
    void LoadInitialConfig(int socket) override;
    void ApplyInitialConfig() override;

    void StartCommit() override;

    // Sends what is staged to the service and leaves it staged: collectors, then interfaces, then
    // the deletion of collectors, each in ascending byte order of the names.
    void ApplyCommitConfig() override;

    const std::vector<SubscriptionPoint>& GetSubscriptionPoints() const override;

private:
    // The service client's notice: true when the manager was found, false when it was lost. Throws
    // boost::bad_any_cast if `status` holds no bool.
    void SetMgrStatus(boost::any status);

    // Reads every collector and stages it, the enabled ones to be sent.
    void GetCollectors(int sock);

    // Stages the collector, not to be sent, unless it is staged already, and copies it to
    // `collector`. Returns false, having changed nothing, if there is no such collector.
    bool GetCollector(int sock, std::string name, collector_st& collector);

    // Reads the interface of that name unless it is staged already, or every interface when the name
    // is empty. `applyAll`: every enabled collector attached is to be attached now; otherwise only
    // `changedCollector` is, or detached if it is disabled. Returns false if there is no interface at all.
    bool GetInterfaces(int sock, bool applyAll, std::string changedCollector, std::string interfaceName);
    void GetInterfaceCollectors(int sock, ECollector kind, bool applyAll, std::string changedCollector,
                                std::string interfaceName);

    // The diff-iterate callback of both subscription points: recognises the changed node by its tag,
    // has it staged, and says how the iteration goes on. `new_value` is read for "enabled" only.
    confd_iter_ret HandleCfg(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* old_value,
                             confd_value_t* new_value);

    // Sends the agent address: the configured one, else the first management interface's, else 0.0.0.0.
    confd_iter_ret HandleCfgAgent(int sock);
    confd_iter_ret HandleCfgCollector(std::string name, confd_iter_op op);
    confd_iter_ret HandleCfgEnabled(std::string name, bool enabled);
    confd_iter_ret HandleCfgInterface(std::string name, confd_iter_op op);
    confd_iter_ret HandleCfgInterfaceCollector(std::string interfaceName, confd_iter_op op, ECollector kind,
                                               std::string collectorName);

    // Attaches one kind of an interface's staged collectors. `updatePending`: the interface's
    // settings have not been sent yet; they travel with the first collector that is attached.
    void ApplyCommitConfigInterface(std::string name, interface_st interface, ECollector kind,
                                    bool& updatePending);

    zlog_category_t* m_category;  // not owned
    std::vector<SubscriptionPoint> m_subscriptionPoints;
    bool m_mgrAvailable;
    std::unique_ptr<sflow::IService> m_service;
    // Staged by the current commit or load.
    std::map<std::string, collector_st> m_collectors;
    std::set<std::string> m_deletedCollectors;
    std::map<std::string, interface_st> m_interfaces;
};

#endif
