// SPDX-License-Identifier: Apache-2.0
#include "sflow_app.h"

#include <qxconfd/base_handler.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include "sflow_config_handler.h"
#include "sflow_report.h"
#include "sflow_set_default.h"

namespace {

constexpr char kSource[] = "src/daemon/sflow_app";
constexpr char kApplication[] = "sflow-app";

constexpr std::uint32_t kNoHaState = 0xffffffff;
constexpr std::uint32_t kHaActive = 1;
constexpr std::uint32_t kHaStandby = 2;

// The second phase; its name depends on the platform.
constexpr auto kStartPhase = static_cast<ELEM_CONFD_PHASE_ET>(2);

const qxmw_process_signature_t kSignature = {"sflow-app"};

// Makes `context` the process's, then deletes the one before. The platform's variable is a plain pointer
// or one that owns.
void Install(qxos::Context*& installed, qxos::Context* context)
{
    qxos::Context* const previous = installed;
    installed = context;
    delete previous;
}
template <typename Owner>
void Install(Owner& installed, qxos::Context* context)
{
    installed.reset(context);
}

}  // namespace

const qxmw_process_signature_t* const process_signature = &kSignature;

SFlowApp::GoActive::GoActive() : qxos::Callback(boost::any(static_cast<void*>(nullptr))), m_owner(nullptr) {}

bool SFlowApp::GoActive::Invoke() { return m_owner != nullptr && m_owner->SetHaState(kHaActive); }

SFlowApp::GoStandby::GoStandby() : qxos::Callback(boost::any(static_cast<void*>(nullptr))), m_owner(nullptr)
{
}

bool SFlowApp::GoStandby::Invoke() { return m_owner != nullptr && m_owner->SetHaState(kHaStandby); }

// m_setDefault is left to Init.
SFlowApp::SFlowApp()
    : m_category(nullptr), m_appInterface(nullptr), m_configHandler(nullptr), m_haState(kNoHaState)
{
}

SFlowApp::~SFlowApp() { Finish(); }

int SFlowApp::Execute()
{
    Init();
    const int result = Run();
    Finish();
    return result;
}

void SFlowApp::Init()
{
    qxos::Context::HaStateChangeCallbacks callbacks{};  // the other three stay null
    callbacks.goActive = &m_goActive;
    callbacks.goStandby = &m_goStandby;
    Install(qxos::the_context, new qxos::Context(process_signature, callbacks));

    m_category = qxmw_trace_init(qxos::the_context->GetSharedQxmw(), kApplication);
    m_configHandler = new SFlowConfigHandler(m_category);
    m_setDefault = new SFlowSetDefault(m_category);

    // The handlers exist before the framework that calls them.
    m_appInterface = new qxconfd::AppInterface(qxos::the_context->GetSharedQxmw(), m_category, kApplication,
                                               {m_configHandler}, {}, {m_setDefault}, kStartPhase, 0);

    // Only from here on does a transition reach SetHaState.
    m_goActive.m_owner = this;
    m_goStandby.m_owner = this;
}

int SFlowApp::Run()
{
    int result = 0;
    SFLOW_LOG(m_category, kSource, kLogNotice, "SFlow App Run");
    try {
        Listen();
    } catch (const std::exception& error) {
        char text[kFaultTextSize] = {};
        std::snprintf(text, sizeof text, "Exception caught!\n'%s'.\n", error.what());
        qxmw_gen_fault(0, __func__, kSource, __LINE__, text);
        result = 1;
    } catch (...) {
        char text[kFaultTextSize] = {};
        std::strcpy(text, "Error! Unknown exception.\n");
        qxmw_gen_fault(0, __func__, kSource, __LINE__, text);
        result = 1;
    }
    SFLOW_LOG(m_category, kSource, kLogNotice, "SFlow App stop running!");
    return result;
}

void SFlowApp::Finish()
{
    if (m_category != nullptr) SFLOW_LOG(m_category, kSource, kLogStep, "%s called", __func__);
    if (m_appInterface != nullptr) {
        m_appInterface->Dispose();
        m_appInterface = nullptr;
    }
    if (m_configHandler != nullptr) {
        delete m_configHandler;
        m_configHandler = nullptr;
    }
    if (m_setDefault != nullptr) {
        delete m_setDefault;
        m_setDefault = nullptr;
    }
    Install(qxos::the_context, nullptr);
    m_category = nullptr;
}

bool SFlowApp::SetHaState(std::uint32_t state)
{
    m_haState = state;
    return true;
}

int SFlowApp::Listen()
{
    SFLOW_LOG(m_category, kSource, kLogNotice, "SFlow Application main loop");
    return qxos::the_context->GetServer().Run();
}
