// The callback manager's seven operations, their results and the order of the
// handler sets the service delivers in.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "CallbackManager.h"
#include "DVRTypes.h"
#include "RecordingCallback.h"

using namespace dvrspace;
using android::sp;

namespace {

sp<android::IInterface> newCallback() {
    return new dvrtest::RecordingCallback("", "");
}

}  // namespace

TEST(CallbackManager, AddedClientIsReturnedByGetClient) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    const sp<android::IInterface> callback = newCallback();
    EXPECT_EQ(0, manager.addClient(100, callback));
    EXPECT_EQ(callback, manager.getClient(100));
}

TEST(CallbackManager, GetClientOfUnknownPidIsNull) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    EXPECT_EQ(nullptr, manager.getClient(100));
}

TEST(CallbackManager, AddClientWithNullCallbackIsRefusedWithBadValue) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    EXPECT_EQ(android::BAD_VALUE, manager.addClient(100, nullptr));
    EXPECT_EQ(nullptr, manager.getClient(100));
}

TEST(CallbackManager, AddClientTwiceReplacesTheCallbackAndKeepsSubscriptions) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    const sp<android::IInterface> first = newCallback();
    const sp<android::IInterface> second = newCallback();
    ASSERT_EQ(0, manager.addClient(100, first));
    ASSERT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(0, manager.addClient(100, second));
    EXPECT_EQ(second, manager.getClient(100));
    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_RECORD, handlers));
    EXPECT_EQ((CallbackHandlerSet{{7, second}}), handlers);
}

TEST(CallbackManager, RemoveClientForgetsIt) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    EXPECT_EQ(0, manager.removeClient(100));
    EXPECT_EQ(nullptr, manager.getClient(100));
}

TEST(CallbackManager, RemoveClientOfUnknownPidGivesNameNotFound) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.removeClient(100));
}

TEST(CallbackManager, AddCallbackObjectForUnknownClientGivesNameNotFound) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
}

TEST(CallbackManager, ObjectTypeOutsideTheEnumerationIsRefusedWithBadValue) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    EXPECT_EQ(android::BAD_VALUE, manager.addCallbackObject(100, 7, -1));
    EXPECT_EQ(android::BAD_VALUE, manager.addCallbackObject(100, 7, 5));
    EXPECT_EQ(android::BAD_VALUE, manager.removeCallbackObject(100, 7, 5));
    CallbackHandlerSet handlers;
    EXPECT_EQ(android::BAD_VALUE, manager.findCallbackHandlers(5, handlers));
}

TEST(CallbackManager, SameSubscriptionTwiceGivesAlreadyExists) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    EXPECT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_ERROR));
    EXPECT_EQ(android::ALREADY_EXISTS, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_ERROR));
    // Another id or another type is another subscription.
    EXPECT_EQ(0, manager.addCallbackObject(100, 8, DVR_CBK_OBJ_ERROR));
    EXPECT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_ABNORMAL));
}

TEST(CallbackManager, RemoveCallbackObjectEndsTheSubscription) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    ASSERT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_STAMP));
    EXPECT_EQ(0, manager.removeCallbackObject(100, 7, DVR_CBK_OBJ_STAMP));
    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_STAMP, handlers));
    EXPECT_TRUE(handlers.empty());
}

TEST(CallbackManager, RemoveCallbackObjectNotSubscribedGivesNameNotFound) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    ASSERT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_STAMP));
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.removeCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.removeCallbackObject(100, 8, DVR_CBK_OBJ_STAMP));
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.removeCallbackObject(101, 7, DVR_CBK_OBJ_STAMP));
}

TEST(CallbackManager, HandlersOfATypeAreOrderedByCbkIdAcrossClients) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    const sp<android::IInterface> first = newCallback();
    const sp<android::IInterface> second = newCallback();
    ASSERT_EQ(0, manager.addClient(100, first));
    ASSERT_EQ(0, manager.addClient(200, second));
    ASSERT_EQ(0, manager.addCallbackObject(200, 30, DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(0, manager.addCallbackObject(100, 50, DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(0, manager.addCallbackObject(100, 10, DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(0, manager.addCallbackObject(200, 20, DVR_CBK_OBJ_ERROR));

    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_RECORD, handlers));
    const std::vector<std::pair<int, sp<android::IInterface>>> ordered(handlers.begin(),
                                                                       handlers.end());
    const std::vector<std::pair<int, sp<android::IInterface>>> expected = {
        {10, first}, {30, second}, {50, first}};
    EXPECT_EQ(expected, ordered);
}

TEST(CallbackManager, FindCallbackHandlersReplacesWhatTheSetHeld) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    const sp<android::IInterface> callback = newCallback();
    ASSERT_EQ(0, manager.addClient(100, callback));
    ASSERT_EQ(0, manager.addCallbackObject(100, 4, DVR_CBK_OBJ_FILENAME));
    CallbackHandlerSet handlers = {{99, newCallback()}};
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_FILENAME, handlers));
    EXPECT_EQ((CallbackHandlerSet{{4, callback}}), handlers);
}

TEST(CallbackManager, FailedFindLeavesTheSetAsItWas) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    const sp<android::IInterface> kept = newCallback();
    CallbackHandlerSet handlers = {{99, kept}};
    EXPECT_EQ(android::BAD_VALUE, manager.findCallbackHandlers(-1, handlers));
    EXPECT_EQ((CallbackHandlerSet{{99, kept}}), handlers);
}

TEST(CallbackManager, TypeZeroDropsSubscriptionsWithTheirClient) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    EXPECT_EQ(CBK_MANAGE_DROP_WITH_CLIENT, manager.type());
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    ASSERT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(0, manager.removeClient(100));

    const sp<android::IInterface> again = newCallback();
    ASSERT_EQ(0, manager.addClient(100, again));
    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_RECORD, handlers));
    EXPECT_TRUE(handlers.empty());
    EXPECT_EQ(android::NAME_NOT_FOUND, manager.removeCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
}

TEST(CallbackManager, KeepForPidSilencesSubscriptionsUntilTheClientReturns) {
    CallbackManager manager(CBK_MANAGE_KEEP_FOR_PID);
    EXPECT_EQ(CBK_MANAGE_KEEP_FOR_PID, manager.type());
    ASSERT_EQ(0, manager.addClient(100, newCallback()));
    ASSERT_EQ(0, manager.addCallbackObject(100, 7, DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(0, manager.removeClient(100));

    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_RECORD, handlers));
    EXPECT_TRUE(handlers.empty());

    const sp<android::IInterface> again = newCallback();
    ASSERT_EQ(0, manager.addClient(100, again));
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_RECORD, handlers));
    EXPECT_EQ((CallbackHandlerSet{{7, again}}), handlers);
}

TEST(CallbackManager, UnknownManageTypeBehavesAsTypeZero) {
    CallbackManager manager(static_cast<CallbackManageType_e>(9));
    EXPECT_EQ(CBK_MANAGE_DROP_WITH_CLIENT, manager.type());
}

TEST(CallbackManager, ConcurrentClientsKeepTheirOwnSubscriptions) {
    CallbackManager manager(CBK_MANAGE_DROP_WITH_CLIENT);
    constexpr int kClients = 8;
    constexpr int kRounds = 200;
    std::vector<std::thread> clients;
    for (int pid = 1; pid <= kClients; ++pid) {
        clients.emplace_back([&manager, pid] {
            const sp<android::IInterface> callback = newCallback();
            for (int round = 0; round < kRounds; ++round) {
                EXPECT_EQ(0, manager.addClient(pid, callback));
                EXPECT_EQ(0, manager.addCallbackObject(pid, pid, DVR_CBK_OBJ_ERROR));
                CallbackHandlerSet handlers;
                EXPECT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_ERROR, handlers));
                EXPECT_EQ(1u, handlers.count({pid, callback}));
                EXPECT_EQ(0, manager.removeClient(pid));
            }
        });
    }
    for (std::thread &client : clients) {
        client.join();
    }
    CallbackHandlerSet handlers;
    ASSERT_EQ(0, manager.findCallbackHandlers(DVR_CBK_OBJ_ERROR, handlers));
    EXPECT_TRUE(handlers.empty());
}
