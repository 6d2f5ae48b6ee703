// The service monitor on a real, per-test state directory: inotify reports,
// state queries and the handler life cycle while the thread runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "ServiceStates.h"
#include "SvcStateDir.h"
#include "TempDir.h"
#include "svc_mon.h"

using dvrtest::LogCapture;
using States = std::vector<std::pair<std::string, std::string>>;

namespace {

constexpr auto kPatience = std::chrono::seconds(20);

struct Call {
    std::string svcName;
    States states;
    std::thread::id thread;
};

// Records every call of svc_mon_callback_t made with it as context.
class CallLog {
public:
    static void callback(const char *svcName, const svc_state_t *states, int count, void *context) {
        auto *log = static_cast<CallLog *>(context);
        Call call{svcName, {}, std::this_thread::get_id()};
        for (int i = 0; i < count; ++i) {
            call.states.emplace_back(states[i].key, states[i].value);
        }
        std::lock_guard<std::mutex> lock(log->mLock);
        log->mCalls.push_back(std::move(call));
        log->mChanged.notify_all();
    }

    std::vector<Call> calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }
    // Every reported pair in order, once the pair `last` has been reported.
    States statesUntil(const std::pair<std::string, std::string> &last) {
        std::unique_lock<std::mutex> lock(mLock);
        States all;
        mChanged.wait_for(lock, kPatience, [&] {
            all.clear();
            for (const Call &call : mCalls) {
                all.insert(all.end(), call.states.begin(), call.states.end());
            }
            return !all.empty() && all.back() == last;
        });
        return all;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Call> mCalls;
};

class SvcMonitorTest : public ::testing::Test {
protected:
    void SetUp() override {
        mStates.watchedByMonitors();
        mMonitor = svc_mon_create();
        ASSERT_NE(nullptr, mMonitor);
    }
    void TearDown() override { svc_mon_destroy(mMonitor); }

    void set(const std::string &service, const std::string &state) { mStates.set(service, state); }
    svc_mon_notify_handle_t addLog(CallLog *log) {
        return svc_mon_notify_add(mMonitor, "init", &CallLog::callback, log);
    }
    // Adds log as a handler and starts the monitor.
    void startWith(CallLog *log) {
        ASSERT_NE(nullptr, addLog(log));
        ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(mMonitor));
    }

    dvrtest::TempDir mTemp;
    SvcStateDir mDir{mTemp.path()};
    dvrtest::ServiceStates mStates{mTemp.path()};
    svc_mon_handle_t mMonitor = nullptr;
};

// A handler that blocks inside its first call until released.
struct Gate {
    static void callback(const char *, const svc_state_t *, int, void *context) {
        auto *gate = static_cast<Gate *>(context);
        if (gate->calls++ == 0) {
            gate->entered.set_value();
            gate->released.get_future().wait();
        }
    }
    std::atomic<int> calls{0};
    std::promise<void> entered;
    std::promise<void> released;
};

}  // namespace

TEST_F(SvcMonitorTest, ReportsAChangeToEveryHandlerOnTheMonitorThread) {
    CallLog first;
    CallLog second;
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(mMonitor));
    ASSERT_NE(nullptr, addLog(&first));
    ASSERT_NE(nullptr, addLog(&second));
    set("enc_service", "stopped");
    for (CallLog *log : {&first, &second}) {
        EXPECT_EQ((States{{"enc_service", "stopped"}}),
                  log->statesUntil({"enc_service", "stopped"}));
        const std::vector<Call> calls = log->calls();
        ASSERT_EQ(1u, calls.size());
        EXPECT_EQ("init", calls[0].svcName);
        EXPECT_NE(std::this_thread::get_id(), calls[0].thread);
    }
}

TEST_F(SvcMonitorTest, StatesPresentAtStartAreNotReported) {
    set("cam_service", "stopped");
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("marker", "stopped");
    EXPECT_EQ((States{{"marker", "stopped"}}), log.statesUntil({"marker", "stopped"}));
}

TEST_F(SvcMonitorTest, SameStateWrittenAgainIsNotReported) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("enc", "stopped");
    ASSERT_EQ((States{{"enc", "stopped"}}), log.statesUntil({"enc", "stopped"}));
    set("enc", "stopped");
    set("marker", "stopped");
    EXPECT_EQ((States{{"enc", "stopped"}, {"marker", "stopped"}}),
              log.statesUntil({"marker", "stopped"}));
}

TEST_F(SvcMonitorTest, NewServiceInTheDefaultStateIsNotAChange) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("enc", "running");
    set("marker", "stopped");
    EXPECT_EQ((States{{"marker", "stopped"}}), log.statesUntil({"marker", "stopped"}));
}

TEST_F(SvcMonitorTest, StateOverwrittenBeforeTheMonitorLooksIsNotReported) {
    Gate gate;
    CallLog log;
    ASSERT_NE(nullptr, svc_mon_notify_add(mMonitor, "init", &Gate::callback, &gate));
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("marker", "stopped");
    gate.entered.get_future().wait();
    // The monitor reports states, not writes: "cam" is back where it was when
    // the monitor looks again.
    set("cam", "stopped");
    set("cam", "running");
    set("marker", "running");
    gate.released.set_value();
    EXPECT_EQ((States{{"marker", "stopped"}, {"marker", "running"}}),
              log.statesUntil({"marker", "running"}));
}

TEST_F(SvcMonitorTest, ChangesMadeWhileAHandlerRunsArriveInOneCallInOrder) {
    Gate gate;
    CallLog log;
    ASSERT_NE(nullptr, svc_mon_notify_add(mMonitor, "init", &Gate::callback, &gate));
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("enc", "stopped");
    gate.entered.get_future().wait();
    set("cam", "restarting");
    set("audio", "stopped");
    set("enc", "running");
    gate.released.set_value();
    EXPECT_EQ(
        (States{
            {"enc", "stopped"}, {"cam", "restarting"}, {"audio", "stopped"}, {"enc", "running"}}),
        log.statesUntil({"enc", "running"}));
    const std::vector<Call> calls = log.calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(3u, calls[1].states.size());
}

TEST_F(SvcMonitorTest, RemovedFileReportsTheDefaultState) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("cam", "stopped");
    ASSERT_EQ((States{{"cam", "stopped"}}), log.statesUntil({"cam", "stopped"}));
    std::string error;
    ASSERT_TRUE(mDir.remove("cam", &error));
    EXPECT_EQ((States{{"cam", "stopped"}, {"cam", "running"}}),
              log.statesUntil({"cam", "running"}));
}

TEST_F(SvcMonitorTest, DefaultChangeReportsKnownServicesWithoutFile) {
    set("enc", "running");
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("cam", "stopped");
    ASSERT_EQ((States{{"cam", "stopped"}}), log.statesUntil({"cam", "stopped"}));
    std::string error;
    ASSERT_TRUE(mDir.remove("cam", &error));
    ASSERT_EQ((States{{"cam", "stopped"}, {"cam", "running"}}),
              log.statesUntil({"cam", "running"}));
    ASSERT_TRUE(mDir.writeDefault("restarting", &error));
    EXPECT_EQ((States{{"cam", "stopped"}, {"cam", "running"}, {"cam", "restarting"}}),
              log.statesUntil({"cam", "restarting"}));
}

TEST_F(SvcMonitorTest, InPlaceRewriteIsReported) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    std::ofstream(mTemp.file("audio")) << "restarting\n";
    EXPECT_EQ((States{{"audio", "restarting"}}), log.statesUntil({"audio", "restarting"}));
}

TEST_F(SvcMonitorTest, MalformedFileIsLoggedAndNotReported) {
    LogCapture capture;
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    std::ofstream(mTemp.file("cam")) << "half written";
    set("marker", "stopped");
    EXPECT_EQ((States{{"marker", "stopped"}}), log.statesUntil({"marker", "stopped"}));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "ignoring a change of cam: malformed state in " +
                                     mTemp.file("cam") +
                                     " (1 to 31 printable characters without blanks expected)"));
}

TEST_F(SvcMonitorTest, OnlyInitReports) {
    LogCapture capture;
    CallLog log;
    EXPECT_EQ(nullptr, svc_mon_notify_add(mMonitor, "servicemanager", &CallLog::callback, &log));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "no service manager named 'servicemanager' here; only 'init' "
                                 "reports states"));
    EXPECT_EQ(nullptr, svc_mon_notify_add(mMonitor, nullptr, &CallLog::callback, &log));
    EXPECT_EQ(nullptr, svc_mon_notify_add(mMonitor, "init", nullptr, &log));
    char value[SVC_MON_STATE_MAX] = {};
    EXPECT_EQ(-1, svc_mon_state_get(mMonitor, "servicemanager", "enc", value));
}

TEST_F(SvcMonitorTest, StateGetReadsTheFileOrTheDefaultRule) {
    char value[SVC_MON_STATE_MAX] = {};
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_state_get(mMonitor, "init", "enc", value));
    EXPECT_STREQ("running", value);
    set("enc", "stopped");
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_state_get(mMonitor, "init", "enc", value));
    EXPECT_STREQ("stopped", value);
    const std::string longest(SVC_MON_STATE_MAX - 1, 'r');
    set("enc", longest);
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_state_get(mMonitor, "init", "enc", value));
    EXPECT_EQ(longest, value);
    std::string error;
    ASSERT_TRUE(mDir.writeDefault("stopped", &error));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_state_get(mMonitor, "init", "cam", value));
    EXPECT_STREQ("stopped", value);
}

TEST_F(SvcMonitorTest, StateGetFailsCleanlyOnBadInput) {
    LogCapture capture;
    char value[SVC_MON_STATE_MAX] = "untouched";
    mTemp.write("cam", std::string(SVC_MON_STATE_MAX, 'x'));
    EXPECT_EQ(-1, svc_mon_state_get(mMonitor, "init", "cam", value));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "svc_mon_state_get(cam): malformed state in " + mTemp.file("cam") +
                                     " (1 to 31 printable characters without blanks expected)"));
    EXPECT_EQ(-1, svc_mon_state_get(mMonitor, "init", "../etc", value));
    EXPECT_EQ(-1, svc_mon_state_get(mMonitor, "init", nullptr, value));
    EXPECT_EQ(-1, svc_mon_state_get(mMonitor, "init", "cam", nullptr));
    EXPECT_STREQ("untouched", value);
}

TEST_F(SvcMonitorTest, RemoveFromAnotherThreadWaitsForTheRunningHandler) {
    Gate gate;
    svc_mon_notify_handle_t handle = svc_mon_notify_add(mMonitor, "init", &Gate::callback, &gate);
    ASSERT_NE(nullptr, handle);
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(mMonitor));
    set("enc", "stopped");
    gate.entered.get_future().wait();
    std::atomic<bool> removed{false};
    std::thread remover([&] {
        EXPECT_EQ(SVC_MON_NOERROR, svc_mon_notify_rm(mMonitor, handle));
        removed = true;
    });
    // The handler still runs, so the removal must still be waiting.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(removed);
    gate.released.set_value();
    remover.join();
    EXPECT_TRUE(removed);
    EXPECT_EQ(1, gate.calls);
}

namespace {

// Removes itself (and the handle in `other`, when set) from its first call.
struct SelfRemover {
    static void callback(const char *, const svc_state_t *, int, void *context) {
        auto *self = static_cast<SelfRemover *>(context);
        ++self->calls;
        self->result = svc_mon_notify_rm(self->monitor, self->own);
        if (self->other != nullptr) {
            self->otherResult = svc_mon_notify_rm(self->monitor, self->other);
        }
    }
    svc_mon_handle_t monitor = nullptr;
    svc_mon_notify_handle_t own = nullptr;
    svc_mon_notify_handle_t other = nullptr;
    std::atomic<int> calls{0};
    std::atomic<int> result{1};
    std::atomic<int> otherResult{1};
};

}  // namespace

TEST_F(SvcMonitorTest, HandlerMayRemoveItselfAndOthersOfTheSameRound) {
    SelfRemover remover;
    CallLog removedLater;
    CallLog kept;
    remover.monitor = mMonitor;
    remover.own = svc_mon_notify_add(mMonitor, "init", &SelfRemover::callback, &remover);
    remover.other = addLog(&removedLater);
    ASSERT_NO_FATAL_FAILURE(startWith(&kept));
    set("enc", "stopped");
    ASSERT_EQ((States{{"enc", "stopped"}}), kept.statesUntil({"enc", "stopped"}));
    set("enc", "running");
    EXPECT_EQ((States{{"enc", "stopped"}, {"enc", "running"}}),
              kept.statesUntil({"enc", "running"}));
    EXPECT_EQ(1, remover.calls);
    EXPECT_EQ(SVC_MON_NOERROR, remover.result);
    EXPECT_EQ(SVC_MON_NOERROR, remover.otherResult);
    EXPECT_TRUE(removedLater.calls().empty());
}

TEST_F(SvcMonitorTest, RemovingAnUnknownHandleFails) {
    LogCapture capture;
    CallLog log;
    svc_mon_notify_handle_t handle = addLog(&log);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(SVC_MON_NOERROR, svc_mon_notify_rm(mMonitor, handle));
    svc_mon_notify_handle_t next = addLog(&log);
    EXPECT_NE(handle, next) << "handles are never given out twice";
    EXPECT_EQ(-1, svc_mon_notify_rm(mMonitor, handle));
    EXPECT_EQ(-1, svc_mon_notify_rm(mMonitor, nullptr));
    EXPECT_EQ(SVC_MON_NOERROR, svc_mon_notify_rm(mMonitor, next));
    EXPECT_EQ(2u,
              capture.messagesContaining("svc_mon_notify_rm: unknown notification handle").size());
}

TEST_F(SvcMonitorTest, StopEndsReportsAndStartTakesANewBaseline) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(mMonitor)) << "starting twice is harmless";
    set("enc", "stopped");
    ASSERT_EQ((States{{"enc", "stopped"}}), log.statesUntil({"enc", "stopped"}));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_stop(mMonitor));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_stop(mMonitor)) << "stopping twice is harmless";
    set("enc", "restarting");
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(mMonitor));
    set("cam", "stopped");
    EXPECT_EQ((States{{"enc", "stopped"}, {"cam", "stopped"}}),
              log.statesUntil({"cam", "stopped"}));
}

namespace {

// Tries to stop, restart and destroy the monitor from inside a handler.
struct Meddler {
    static void callback(const char *, const svc_state_t *, int, void *context) {
        auto *self = static_cast<Meddler *>(context);
        self->stopResult = svc_mon_notify_stop(self->monitor);
        self->startResult = svc_mon_notify_start(self->monitor);
        svc_mon_destroy(self->monitor);
        self->done.set_value();
    }
    svc_mon_handle_t monitor = nullptr;
    std::atomic<int> stopResult{0};
    std::atomic<int> startResult{0};
    std::promise<void> done;
};

}  // namespace

TEST_F(SvcMonitorTest, StopStartAndDestroyAreRefusedInsideAHandler) {
    LogCapture capture;
    Meddler meddler;
    meddler.monitor = mMonitor;
    svc_mon_notify_handle_t handle =
        svc_mon_notify_add(mMonitor, "init", &Meddler::callback, &meddler);
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("enc", "stopped");
    meddler.done.get_future().wait();
    EXPECT_EQ(-1, meddler.stopResult);
    EXPECT_EQ(-1, meddler.startResult);
    EXPECT_TRUE(
        capture.contains(ANDROID_LOG_ERROR, "SvcMon", "svc_mon_notify_stop called from a handler"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "svc_mon_notify_start called from a handler"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "svc_mon_destroy called from a handler; the monitor is left "
                                 "running"));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_rm(mMonitor, handle));
    set("enc", "running");
    EXPECT_EQ((States{{"enc", "stopped"}, {"enc", "running"}}),
              log.statesUntil({"enc", "running"}));
}

TEST_F(SvcMonitorTest, StartServiceAndWaitWritesRunningAndIsReported) {
    CallLog log;
    ASSERT_NO_FATAL_FAILURE(startWith(&log));
    set("enc", "stopped");
    ASSERT_EQ((States{{"enc", "stopped"}}), log.statesUntil({"enc", "stopped"}));
    ASSERT_EQ(SVC_MON_NOERROR, startServiceAndWait("enc"));
    char value[SVC_MON_STATE_MAX] = {};
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_state_get(mMonitor, "init", "enc", value));
    EXPECT_STREQ("running", value);
    EXPECT_EQ((States{{"enc", "stopped"}, {"enc", "running"}}),
              log.statesUntil({"enc", "running"}));
}

TEST_F(SvcMonitorTest, StartServiceAndWaitRefusesBadNames) {
    LogCapture capture;
    EXPECT_EQ(-1, startServiceAndWait(nullptr));
    EXPECT_EQ(-1, startServiceAndWait("../enc"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMon",
                                 "cannot start ../enc: bad service name '../enc'"));
}

TEST_F(SvcMonitorTest, HandlersComeAndGoWhileChangesFlow) {
    CallLog kept;
    ASSERT_NO_FATAL_FAILURE(startWith(&kept));
    std::atomic<bool> writing{true};
    std::thread churn([&] {
        while (writing) {
            CallLog passing;
            svc_mon_notify_handle_t handle = addLog(&passing);
            EXPECT_NE(nullptr, handle);
            // After rm returns, `passing` may go: no handler uses it any more.
            EXPECT_EQ(SVC_MON_NOERROR, svc_mon_notify_rm(mMonitor, handle));
        }
    });
    for (int i = 0; i < 40; ++i) {
        set("enc", i % 2 == 0 ? "stopped" : "running");
    }
    set("enc", "restarting");
    EXPECT_EQ((std::pair<std::string, std::string>{"enc", "restarting"}),
              kept.statesUntil({"enc", "restarting"}).back());
    writing = false;
    churn.join();
}

TEST(SvcMonitorCreate, FailsWhenTheDirectoryCannotBeMade) {
    LogCapture capture;
    dvrtest::TempDir temp;
    const std::string blocker = temp.write("file", "x");
    setenv("DVR_SVC_DIR", (blocker + "/svc").c_str(), 1);
    EXPECT_EQ(nullptr, svc_mon_create());
    EXPECT_EQ(1u, capture
                      .messagesContaining("cannot use the state directory: cannot create " +
                                          blocker + "/svc: ")
                      .size());
}

TEST(SvcMonitorCreate, NullHandlesAreRefused) {
    char value[SVC_MON_STATE_MAX] = {};
    EXPECT_EQ(-1, svc_mon_notify_start(nullptr));
    EXPECT_EQ(-1, svc_mon_notify_stop(nullptr));
    EXPECT_EQ(nullptr, svc_mon_notify_add(nullptr, "init", &CallLog::callback, nullptr));
    EXPECT_EQ(-1, svc_mon_notify_rm(nullptr, nullptr));
    EXPECT_EQ(-1, svc_mon_state_get(nullptr, "init", "enc", value));
    svc_mon_destroy(nullptr);
}

TEST(SvcMonitorCreate, DefaultDirectoryIsUsedWhenTheVariableIsUnset) {
    unsetenv("DVR_SVC_DIR");
    EXPECT_EQ("/tmp/dvr_svc", SvcStateDir::fromEnvironment().path());
    setenv("DVR_SVC_DIR", "", 1);
    EXPECT_EQ("/tmp/dvr_svc", SvcStateDir::fromEnvironment().path());
}
