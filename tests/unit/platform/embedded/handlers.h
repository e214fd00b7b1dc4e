// SPDX-License-Identifier: Apache-2.0
// Handlers that write down what the framework calls, in one list for all of them.

#ifndef TESTS_UNIT_PLATFORM_EMBEDDED_HANDLERS_H
#define TESTS_UNIT_PLATFORM_EMBEDDED_HANDLERS_H

#include <confd_maapi.h>
#include <qxconfd/config_handler.h>
#include <qxconfd/data_handler.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

using Events = std::vector<std::string>;

/// What a callback is given, as "created /config/..." or "value-set /config/... = 512".
std::string Described(const confd_hkeypath_t* keypath, confd_iter_op operation, const confd_value_t* oldValue,
                      const confd_value_t* newValue);

class RecordingConfig final : public qxconfd::ConfigHandler {
public:
    explicit RecordingConfig(Events& events) : m_events(events) {}

    /// Subscribes a path; to be called before the framework connects.
    void AddPoint(std::int32_t priority, const char* path);

    void ConfdConnected(ELEM_CONFD_PHASE_ET phase) override;
    void ConfdDisconnected() override;
    void LoadInitialConfig(int socket) override;
    void ApplyInitialConfig() override;
    void StartCommit() override;
    void ApplyCommitConfig() override;
    const std::vector<SubscriptionPoint>& GetSubscriptionPoints() const override { return m_points; }

    [[nodiscard]] QxConfdInterface* Confd() const { return m_confd; }

    std::map<std::string, int> returns;              // by described node; recurse for the others
    std::function<void(int socket)> onLoad;          // more to do in LoadInitialConfig
    std::function<void(const std::string&)> onNode;  // and in a point's callback

private:
    Events& m_events;
    std::vector<SubscriptionPoint> m_points;
};

class RecordingData final : public qxconfd::DataHandler {
public:
    explicit RecordingData(Events& events)
        : DataHandler(false, true, false, false, false, true, false), m_events(events), m_callpoint(*this)
    {
    }

    void ConfdConnected(ELEM_CONFD_PHASE_ET phase) override;
    void ConfdDisconnected() override;
    int TransactionInit(confd_trans_ctx* transaction) override;
    int TransactionFinish(confd_trans_ctx* transaction) override;
    std::vector<Callpoint*>& GetCallpoints() override { return m_callpoints; }

    int initResult = CONFD_OK;
    int createResult = CONFD_OK;
    std::function<void(confd_trans_ctx*, const std::string& path)> onCreate;  // more to do in the callback
    std::function<int(confd_trans_ctx*, confd_hkeypath_t*)> createBody;       // instead of createResult

private:
    class SetRate final : public Callpoint {
    public:
        explicit SetRate(RecordingData& handler) : m_handler(handler) {}
        int CreateCallback(confd_trans_ctx* transaction, confd_hkeypath_t* keypath) override;
        int RemoveCallback(confd_trans_ctx* transaction, confd_hkeypath_t* keypath) override;
        int SetElemCallback(confd_trans_ctx* transaction, confd_hkeypath_t* keypath,
                            confd_value_t* value) override;
        const char* GetCallpointName() override { return "sflow-set-sampling-rate"; }

    private:
        RecordingData& m_handler;
    };

    Events& m_events;
    SetRate m_callpoint;
    std::vector<Callpoint*> m_callpoints{&m_callpoint};
};

#endif
