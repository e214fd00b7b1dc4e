// SPDX-License-Identifier: Apache-2.0
// The order in which destructors release what an object holds.

#include <qxmw/qxmw.h>

#include <memory>

#include "release_watch.h"
#include "support.h"

namespace daemon_tests {
namespace {

// Longer than what a string keeps within itself: its bytes are a block of their own.
const std::string kLong(64, 'n');

class ReleaseTest : public DaemonTest {
protected:
    ~ReleaseTest() override { ForgetWatches(); }

    // A payload that notes its end.
    std::shared_ptr<int> Noting(const char* name)
    {
        return {new int(0), [this, name](const int* value) {
                    platform.recorder.Note(std::string("release ") + name);
                    delete value;
                }};
    }
};

TEST_F(ReleaseTest, HandlerReleasesTheServiceFirstThenItsMembersFromTheLast)
{
    auto handler = std::make_unique<SFlowConfigHandler>(qxmw_trace_init(nullptr, "test"));
    inside::Collectors(*handler)[kLong];
    inside::DeletedCollectors(*handler).insert(kLong);
    inside::Interfaces(*handler)[kLong];
    WatchRelease(inside::Collectors(*handler).begin()->first.data(), "collectors");
    WatchRelease(inside::DeletedCollectors(*handler).begin()->data(), "deleted collectors");
    WatchRelease(inside::Interfaces(*handler).begin()->first.data(), "interfaces");
    WatchRelease(inside::SubscriptionPoints(*handler).data(), "subscription points");
    WatchRelease(handler.get(), "handler");
    ForgetRecords();
    handler.reset();
    EXPECT_THAT(platform.recorder.journal,
                ElementsAre("service delete", "release interfaces", "release deleted collectors",
                            "release collectors", "release subscription points", "release handler"));
}

TEST_F(ReleaseTest, ApplicationReleasesTheContextAndThenStandbyBeforeActive)
{
    auto app = std::make_unique<SFlowApp>();
    app->Init();
    inside::Payload(inside::GoActive(*app)) = Noting("active");
    inside::Payload(inside::GoStandby(*app)) = Noting("standby");
    WatchRelease(inside::ConfigHandler(*app), "configuration handler");
    WatchRelease(inside::SetDefault(*app), "data handler");
    WatchRelease(app.get(), "application");
    ForgetRecords();
    app.reset();
    EXPECT_THAT(platform.recorder.journal,
                ElementsAre("log 10 Finish: Finish called", "framework dispose", "framework delete",
                            "service delete", "release configuration handler", "release data handler",
                            "context delete", "release standby", "release active", "release application"));
}

TEST_F(ReleaseTest, CallbackReleasesItsPayloadAndLeavesItsOwner)
{
    struct Owner : HAStateHandlerInterface {
        bool SetHaState(std::uint32_t) override { return true; }
    } owner;
    auto callback = std::make_unique<SFlowApp::GoActive>();
    inside::GoActiveOwner(*callback) = &owner;
    inside::Payload(*callback) = Noting("payload");
    ForgetRecords();
    callback.reset();
    EXPECT_THAT(platform.recorder.journal, ElementsAre("release payload"));
    EXPECT_TRUE(owner.SetHaState(1));
}

TEST_F(ReleaseTest, DataHandlerReleasesItsListAndNotItsCallpoint)
{
    auto handler = std::make_unique<SFlowSetDefault>(qxmw_trace_init(nullptr, "test"));
    WatchRelease(inside::Callpoints(*handler).data(), "callpoints");
    WatchRelease(&inside::SetRate(*handler), "callpoint");
    WatchRelease(handler.get(), "handler");
    ForgetRecords();
    handler.reset();
    EXPECT_THAT(platform.recorder.journal, ElementsAre("release callpoints", "release handler"));
}

}  // namespace
}  // namespace daemon_tests
