// SPDX-License-Identifier: Apache-2.0
// The fake platform: one object that stands for the whole of it, reset before every test.
//
// Implements, at link time, every function and class of the contract. Nothing happens by itself: a
// test moves the loop on, lets the manager come and go, and reads what was recorded. Used by the
// daemon's tests, by the contract suite and, without the log, by the stand-in for a switch's SDK.

#ifndef FAKES_FAKE_PLATFORM_H
#define FAKES_FAKE_PLATFORM_H

#include <qxconfd/app_interface.h>
#include <qxos/context.h>
#include <sflow/i_service.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fakes/fake_cdb.h"
#include "fakes/recorder.h"

namespace fakes {

/// The framework's connection object.
class Confd : public QxConfdInterface {
public:
    bool connected = true;
    std::string refusal;  // not empty: sessions can't be opened, for this reason

    [[nodiscard]] bool IsConnected() const override { return connected; }
    [[nodiscard]] int MaapiSocket() const override { return kMaapiSocket; }
    int OpenCdbSession(cdb_db_type database, bool subscriptionLock) override;
    void CloseCdbSession(int socket) noexcept override;

    static constexpr int kMaapiSocket = 7;
};

/// One write through maapi_set_elem.
struct Write {
    int socket = 0;
    int transaction = 0;
    std::string path;
    Value value;
    friend bool operator==(const Write&, const Write&) = default;
};

/// What the framework object was built with.
struct FrameworkArguments {
    qxmw_t* qxmw = nullptr;
    zlog_category_t* category = nullptr;
    std::string application;
    std::vector<qxconfd::ConfigHandler*> configHandlers;
    std::vector<qxconfd::ActionHandler*> actionHandlers;
    std::vector<qxconfd::DataHandler*> dataHandlers;
    ELEM_CONFD_PHASE_ET startPhase = ELEM_CONFD_PHASE_0;
    int options = 0;
};

struct Platform {
    Recorder recorder;
    Cdb cdb;
    Confd confd;

    // The process's context and framework, as last built.
    std::string processName;
    std::size_t signatureRest = 0;  // bytes of the signature's name that are not zero after its text
    qxos::Context::HaStateChangeCallbacks callbacks{};
    FrameworkArguments framework;
    std::function<void()> onFrameworkBuilt;  // at the end of the framework's constructor
    std::function<int()> loop;               // what the server runs; empty: Pump, then 0
    std::function<void()> onServiceCall;     // after each recorded operation
    zlog_category_t* category = nullptr;     // what qxmw_trace_init returned

    // The service client, while there is one.
    sflow::IService* service = nullptr;
    std::optional<sflow::IService::Notice> found;
    std::optional<sflow::IService::Notice> lost;
    bool managerPresent = false;
    bool sessionOpen = false;
    std::vector<ServiceCall> received;  // what reached the manager: the calls inside its sessions

    // Transactions.
    std::set<int> openTransactions;
    std::vector<Write> writes;

    // Strings delivered by reads and not yet released.
    std::set<const unsigned char*> unreleased;
    std::vector<std::unique_ptr<unsigned char[]>> strings;
    std::vector<confd_vtype> released;  // what confd_free_value was given, call by call
    int dirtyBuffers = 0;               // buffers given to confd_pp_kpath that were not all zero
    std::string lastError;

    static Platform& Get();
    void Reset();

    /// The manager comes or goes: the client is told from the loop, once it is pumped.
    void SetManager(bool present);
    /// The same, with the client told at once, as the loop would.
    void ManagerFound();
    void ManagerLost();

    /// Tells the client of what has changed since it was last told.
    void TellOfManager();

    /// Runs what waits in the loop. False: nothing did.
    bool Pump();

    std::deque<std::function<void()>> waiting;
};

}  // namespace fakes

#endif
