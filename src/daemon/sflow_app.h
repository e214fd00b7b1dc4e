// SPDX-License-Identifier: Apache-2.0
// The application object of the sFlow configuration daemon, and its high-availability hooks.
//
// Creates, wires, runs and releases everything of the process. It has no event loop of its own:
// all work happens in callbacks of the platform's loop. Used by main.

#ifndef DAEMON_SFLOW_APP_H
#define DAEMON_SFLOW_APP_H

#include <qxconfd/app_interface.h>
#include <qxmw/qxmw.h>
#include <qxos/callback.h>
#include <qxos/context.h>
#include <zlog.h>

#include <cstdint>

class SFlowConfigHandler;
class SFlowSetDefault;

// An object that is told when the node's role changes.
class HAStateHandlerInterface {
public:
    virtual ~HAStateHandlerInterface() = default;

    // 1: the node became active; 2: it became standby. Returns whether the object has noted it.
    virtual bool SetHaState(std::uint32_t state) = 0;
};

class SFlowApp : public HAStateHandlerInterface {
public:
    // The callback of one transition. Returns false if it has no owner.
    class GoActive : public qxos::Callback {
    public:
        GoActive();
        bool Invoke() override;

    private:
        friend class SFlowApp;
        HAStateHandlerInterface* m_owner;
    };

    class GoStandby : public qxos::Callback {
    public:
        GoStandby();
        bool Invoke() override;

    private:
        friend class SFlowApp;
        HAStateHandlerInterface* m_owner;
    };

    SFlowApp();
    SFlowApp(const SFlowApp&) = delete;
    SFlowApp& operator=(const SFlowApp&) = delete;
    ~SFlowApp() override;

    // Init, Run, Finish; returns Run's result, the process's exit status.
    int Execute();

    // Creates and wires every long-lived object. Undoes nothing if one throws; the exception passes to the
    // caller.
    void Init();

    // Runs Listen: 0 when it returned, 1 when an exception ended it, which is reported as a fault.
    int Run();

    // Releases what Init created, in the reverse order of need; harmless when called again.
    void Finish();

    bool SetHaState(std::uint32_t state) override;

    // The platform's blocking loop; returns the loop's result.
    virtual int Listen();

private:
    zlog_category_t* m_category;            // the platform's; null before Init and after Finish
    qxconfd::AppInterface* m_appInterface;  // owned; disposes of itself
    SFlowConfigHandler* m_configHandler;    // owned
    SFlowSetDefault* m_setDefault;          // owned; first written by Init and not read before
    std::uint32_t m_haState;                // as last reported; all ones: never
    // The context holds the addresses of these two, so Finish deletes it before they end.
    GoActive m_goActive;
    GoStandby m_goStandby;
};

// The process's name for the platform's context.
extern const qxmw_process_signature_t* const process_signature;

#endif
