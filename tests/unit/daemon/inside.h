// SPDX-License-Identifier: Apache-2.0
// A way into the private parts of the daemon's classes, for tests only.
//
// An explicit template instantiation may name a private member: each line below makes one member
// reachable as `inside::Name(object)`, without the daemon's headers knowing of tests.

#ifndef DAEMON_TESTS_INSIDE_H
#define DAEMON_TESTS_INSIDE_H

#include <utility>

#include "daemon/sflow_app.h"
#include "daemon/sflow_config_handler.h"
#include "daemon/sflow_set_default.h"

namespace inside {

template <typename Tag, auto Member>
struct Opened {
    friend constexpr auto Get(Tag) { return Member; }
};

// Calls a member function of the handler, or refers to a member of the object.
#define INSIDE_FIELD(Class, Name, Member)              \
    struct Name##Tag {                                 \
        friend constexpr auto Get(Name##Tag);          \
    };                                                 \
    template struct Opened<Name##Tag, &Class::Member>; \
    inline auto& Name(Class& object) { return object.*Get(Name##Tag()); }
#define INSIDE_FUNCTION(Class, Name)                                    \
    struct Name##Tag {                                                  \
        friend constexpr auto Get(Name##Tag);                           \
    };                                                                  \
    template struct Opened<Name##Tag, &Class::Name>;                    \
    template <typename... Args>                                         \
    auto Name(Class& object, Args&&... args)                            \
    {                                                                   \
        return (object.*Get(Name##Tag()))(std::forward<Args>(args)...); \
    }

INSIDE_FIELD(SFlowConfigHandler, Category, m_category)
INSIDE_FIELD(SFlowConfigHandler, SubscriptionPoints, m_subscriptionPoints)
INSIDE_FIELD(SFlowConfigHandler, MgrAvailable, m_mgrAvailable)
INSIDE_FIELD(SFlowConfigHandler, Service, m_service)
INSIDE_FIELD(SFlowConfigHandler, Collectors, m_collectors)
INSIDE_FIELD(SFlowConfigHandler, DeletedCollectors, m_deletedCollectors)
INSIDE_FIELD(SFlowConfigHandler, Interfaces, m_interfaces)
INSIDE_FUNCTION(SFlowConfigHandler, SetMgrStatus)
INSIDE_FUNCTION(SFlowConfigHandler, GetCollectors)
INSIDE_FUNCTION(SFlowConfigHandler, GetCollector)
INSIDE_FUNCTION(SFlowConfigHandler, GetInterfaces)
INSIDE_FUNCTION(SFlowConfigHandler, GetInterfaceCollectors)
INSIDE_FUNCTION(SFlowConfigHandler, HandleCfgInterfaceCollector)
INSIDE_FUNCTION(SFlowConfigHandler, ApplyCommitConfigInterface)

INSIDE_FIELD(SFlowApp, AppCategory, m_category)
INSIDE_FIELD(SFlowApp, AppInterface, m_appInterface)
INSIDE_FIELD(SFlowApp, ConfigHandler, m_configHandler)
INSIDE_FIELD(SFlowApp, SetDefault, m_setDefault)
INSIDE_FIELD(SFlowApp, HaState, m_haState)
INSIDE_FIELD(SFlowApp, GoActive, m_goActive)
INSIDE_FIELD(SFlowApp, GoStandby, m_goStandby)
INSIDE_FIELD(SFlowApp::GoActive, GoActiveOwner, m_owner)
INSIDE_FIELD(SFlowApp::GoStandby, GoStandbyOwner, m_owner)
INSIDE_FIELD(qxos::Callback, Payload, m_payload)

INSIDE_FIELD(SFlowSetDefault, Callpoints, m_callpoints)
INSIDE_FIELD(SFlowSetDefault, SetRate, m_setRate)
INSIDE_FIELD(SFlowSetDefault::SetRateCallpoint, CallpointCategory, m_category)

#undef INSIDE_FIELD
#undef INSIDE_FUNCTION

}  // namespace inside

// The records as values: equal when all fields are.
inline bool operator==(const collector_st& a, const collector_st& b)
{
    return a.enabled == b.enabled && a.ip == b.ip && a.dgsize == b.dgsize && a.port == b.port &&
           a.send == b.send;
}
inline bool operator==(const interface_st& a, const interface_st& b)
{
    return a.rate == b.rate && a.max_header_size == b.max_header_size && a.interval == b.interval &&
           a.collectors[0] == b.collectors[0] && a.collectors[1] == b.collectors[1] &&
           a.removedCollectors[0] == b.removedCollectors[0] &&
           a.removedCollectors[1] == b.removedCollectors[1] && a.update == b.update;
}

#endif
