// dvrctl watch as a client of the test service: the service calls the
// callback object that watch attached, watch prints each notification and
// answers the two queries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>

#include "DvrctlTool.h"
#include "ServiceProcess.h"

namespace {

const std::vector<std::string> kTypes = {"0", "1", "2", "3", "4"};

dvrtest::RecordingDVR::Plan callingBackPlan() {
    dvrtest::RecordingDVR::Plan plan;
    plan.callBackFromRecordCalls = true;
    plan.cbkId = 3;
    return plan;
}

// The lines establishCallback and the five registerCallback calls leave in
// the transcript, for the client pid.
std::vector<std::string> attachLines(const std::string &pid) {
    std::vector<std::string> expected = {"2 establishCallback(" + pid + ", callback)"};
    for (const std::string &type : kTypes) {
        expected.push_back("0 registerCallback(" + pid + ", " + type + ", " + type + ")");
    }
    return expected;
}

std::vector<std::string> detachLines(const std::string &pid) {
    std::vector<std::string> expected;
    for (const std::string &type : kTypes) {
        expected.push_back("1 unregisterCallback(" + pid + ", " + type + ", " + type + ")");
    }
    expected.push_back("3 destroyCallback(" + pid + ")");
    return expected;
}

// The pid in "2 establishCallback(<pid>, callback)".
std::string clientPid(const std::string &establishLine) {
    const size_t open = establishLine.find('(');
    return establishLine.substr(open + 1, establishLine.find(',') - open - 1);
}

const std::string kPlainNotifications =
    "record enc=5 start /rec/start.ts\n"
    "record enc=5 finish /rec/finish.ts\n"
    "error enc=5 error 3\n"
    "error enc=5 severe 4\n"
    "abnormal enc=5 abnormal 0\n";

// Runs dvrctl watch in the background; its pid goes into pidFile.
std::future<dvrtest::CommandResult> startWatch(const std::string &arguments,
                                               const std::string &pidFile) {
    return std::async(std::launch::async, [=] {
        return dvrtest::runCommand("{ " + dvrtest::dvrctlCommand("watch " + arguments) +
                                   " & echo $! > " + pidFile + "; wait $!; }");
    });
}

void stopWatch(const std::string &pidFile) {
    std::string pid;
    std::ifstream(pidFile) >> pid;
    ASSERT_FALSE(pid.empty());
    EXPECT_EQ(0, kill(std::stoi(pid), SIGTERM));
}

}  // namespace

TEST(DvrctlWatch, PrintsEveryNotificationAnswersTheQueriesAndDetachesOnSigterm) {
    dvrtest::ServiceProcess service(callingBackPlan());
    dvrtest::TempDir dir;
    const std::string pidFile = dir.file("pid");
    auto watch = startWatch("--stamp 'cam %Y' --file-name 'clip-%i-%%.ts'", pidFile);
    const std::vector<std::string> attached = service.waitForTranscriptLines(6);
    ASSERT_EQ(6u, attached.size());
    const std::string pid = clientPid(attached[0]);
    EXPECT_EQ(attachLines(pid), attached);

    const android::sp<dvrspace::IDVR> dvr = service.connect();
    ASSERT_NE(nullptr, dvr);
    EXPECT_EQ(0, dvr->startRecord(5));
    const std::vector<std::string> calls = service.waitForTranscriptLines(10);
    ASSERT_EQ(10u, calls.size());
    EXPECT_EQ("25 startRecord(5)", calls[0]);
    EXPECT_EQ("callback onRecordStart -> 0", calls[1]);
    EXPECT_EQ("callback onRecordAbnormal -> 0", calls[5]);
    char year[8];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(year, sizeof year, "%Y", &local);
    EXPECT_EQ(std::string("callback getStampString -> 0 \"cam ") + year + "\"", calls[6]);
    EXPECT_EQ("callback fileNameGenerator -> 0 \"clip-1-%.ts\"", calls[7]);

    std::string watchPid;
    std::ifstream(pidFile) >> watchPid;
    EXPECT_EQ(pid, watchPid);  // the client is dvrctl itself
    stopWatch(pidFile);
    const dvrtest::CommandResult result = watch.get();
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(kPlainNotifications, result.out);
    EXPECT_EQ(detachLines(pid), service.waitForTranscriptLines(6));
}

TEST(DvrctlWatch, LeavesTheQueryBuffersAloneWithoutAnswers) {
    dvrtest::ServiceProcess service(callingBackPlan());
    dvrtest::TempDir dir;
    // Not --count: the queries come after the five notifications.
    auto watch = startWatch("", dir.file("pid"));
    ASSERT_EQ(6u, service.waitForTranscriptLines(6).size());
    const android::sp<dvrspace::IDVR> dvr = service.connect();
    ASSERT_NE(nullptr, dvr);
    EXPECT_EQ(0, dvr->startRecord(5));
    const std::vector<std::string> calls = service.waitForTranscriptLines(10);
    ASSERT_EQ(10u, calls.size());
    EXPECT_EQ("callback getStampString -> 0 \"\"", calls[6]);
    EXPECT_EQ("callback fileNameGenerator -> 0 \"\"", calls[7]);
    stopWatch(dir.file("pid"));
    const dvrtest::CommandResult result = watch.get();
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(kPlainNotifications, result.out);
}

TEST(DvrctlWatch, EndsAfterCountNotificationsWithOneCamelCaseJsonObjectEach) {
    dvrtest::ServiceProcess service(callingBackPlan());
    auto watch = std::async(std::launch::async,
                            [&] { return dvrtest::runDvrctl("--json watch --count 3"); });
    const std::vector<std::string> attached = service.waitForTranscriptLines(6);
    ASSERT_EQ(6u, attached.size());
    const android::sp<dvrspace::IDVR> dvr = service.connect();
    ASSERT_NE(nullptr, dvr);
    // The notifications come from another thread of the service after the call.
    EXPECT_EQ(0, dvr->stopRecord(6));
    const dvrtest::CommandResult result = watch.get();
    EXPECT_EQ(0, result.status) << result.err;
    const std::vector<std::string> printed = dvrtest::lines(result.out);
    ASSERT_EQ(3u, printed.size()) << result.out;
    EXPECT_EQ(nlohmann::json::parse(R"({"command":"watch","type":"record","event":"start",
                  "encId":6,"cbkId":3,"file":"/rec/start.ts"})"),
              nlohmann::json::parse(printed[0]));
    EXPECT_EQ(nlohmann::json::parse(R"({"command":"watch","type":"record","event":"finish",
                  "encId":6,"cbkId":3,"file":"/rec/finish.ts"})"),
              nlohmann::json::parse(printed[1]));
    EXPECT_EQ(nlohmann::json::parse(R"({"command":"watch","type":"error","event":"error",
                  "encId":6,"cbkId":3,"errorCode":3})"),
              nlohmann::json::parse(printed[2]));
}

TEST(DvrctlWatch, EndsAfterItsSecondsAndDetaches) {
    dvrtest::ServiceProcess service(dvrtest::RecordingDVR::Plan{});
    const dvrtest::CommandResult result = dvrtest::runDvrctl("watch --seconds 1");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("", result.out);
    const std::vector<std::string> transcript = service.waitForTranscriptLines(12);
    ASSERT_EQ(12u, transcript.size());
    const std::string pid = clientPid(transcript[0]);
    std::vector<std::string> expected = attachLines(pid);
    for (const std::string &line : detachLines(pid)) {
        expected.push_back(line);
    }
    EXPECT_EQ(expected, transcript);
}

TEST(DvrctlWatch, EndsWithThreeWhenTheServiceDies) {
    dvrtest::ServiceProcess service(dvrtest::RecordingDVR::Plan{});
    auto watch = std::async(std::launch::async, [&] { return dvrtest::runDvrctl("watch"); });
    ASSERT_EQ(6u, service.waitForTranscriptLines(6).size());
    service.stop();
    const dvrtest::CommandResult result = watch.get();
    EXPECT_EQ(3, result.status);
    EXPECT_NE(std::string::npos, result.err.find("dvrctl: watch: the service died")) << result.err;
}
