// SPDX-License-Identifier: Apache-2.0
// What tests of notifications share.

#ifndef AGENT_EVENTS_NOTIFICATIONS_H
#define AGENT_EVENTS_NOTIFICATIONS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <atomic>
#include <memory>
#include <string>

#include "agent/agent_world.h"
#include "agent/data/yang_tree.h"
#include "agent/rpc_text.h"
#include "netconf/requests.h"

namespace agent_tests {

inline constexpr std::int64_t kStart = 1'795'231'211'000'000;  // 2026-11-21T03:20:11Z

/// A clock that the test sets.
struct Clock {
    std::shared_ptr<std::atomic<std::int64_t>> us = std::make_shared<std::atomic<std::int64_t>>(kStart);

    [[nodiscard]] agent::AgentOptions Options() const
    {
        agent::AgentOptions options;
        options.now = [now = us] { return now->load(); };
        return options;
    }
};

inline std::string Subscription(const std::string& parameters = {})
{
    return "<create-subscription xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">" + parameters +
           "</create-subscription>";
}

inline std::string ChangesOnly()
{
    return "<filter type=\"subtree\"><netconf-config-change "
           "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/></filter>";
}

inline std::string Next(netconf::Client& client) { return client.ReceiveMessage(); }

inline void Commit(netconf::Client& client, const std::string& content, const std::string& comment = {})
{
    Do(client, netconf::EditConfig(Sflow(content)));
    Do(client, netconf::Commit(comment));
}

/// The notification is data of the modules.
inline void ExpectValid(const std::string& notification)
{
    ly_in* raw = nullptr;
    ASSERT_EQ(LY_SUCCESS, ly_in_new_memory(notification.c_str(), &raw));
    const cdb::Owned<ly_in> in(raw);
    lyd_node* envelope = nullptr;
    lyd_node* event = nullptr;
    const LY_ERR result = lyd_parse_op(Schema().Context(), nullptr, in.get(), LYD_XML, LYD_TYPE_NOTIF_NETCONF,
                                       &envelope, &event);
    const agent::Tree envelopeOwner(envelope);
    const agent::Tree eventOwner(event);
    ASSERT_EQ(LY_SUCCESS, result) << notification;
    // The targets of edits are instances of a datastore that is not here, and what is deleted is nowhere.
    if (notification.find("<target") != std::string::npos) return;
    // RFC 6470 wants the session's parameters with each of these but the timeout. The module's condition on
    // them can't hold: it stands at the notification itself, above which there is no confirm-event.
    if (notification.find("<confirm-event>") != std::string::npos &&
        notification.find("<username>") != std::string::npos)
        return;
    EXPECT_EQ(LY_SUCCESS, lyd_validate_op(event, nullptr, LYD_TYPE_NOTIF_YANG, nullptr)) << notification;
}

}  // namespace agent_tests

#endif
