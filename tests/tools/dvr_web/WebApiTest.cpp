// dvr-web's JSON API against a live dvr_server and keeper on simulated
// devices, without a browser: every endpoint answers JSON (or the media it
// names), refusals and bad requests get the right 4xx with a reason, and the
// console keeps serving after each.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <thread>

#include "Catalog.h"
#include "ConsoleRig.h"
#include "RecordingReader.h"
#include "TempDir.h"

using dvrtest::ConsoleRig;
using nlohmann::json;

namespace {

constexpr int kFileSeconds = 2;
// The simulated cameras run at 10 frames a second.
constexpr int kFramesPerFile = 10 * kFileSeconds;
constexpr auto kRecordingWait = std::chrono::seconds(60);

class WebApi : public testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.start(kFileSeconds)); }

    httplib::Result post(const std::string &path, const std::string &body = "") {
        return rig.client().Post(path.c_str(), body, "application/json");
    }

    json postJson(const std::string &path, int expectedStatus) {
        const httplib::Result result = post(path);
        EXPECT_TRUE(result) << path;
        if (!result) {
            return nullptr;
        }
        EXPECT_EQ(expectedStatus, result->status) << path << ": " << result->body;
        EXPECT_EQ("application/json", result->get_header_value("Content-Type"));
        const json body = json::parse(result->body, nullptr, false);
        EXPECT_FALSE(body.is_discarded()) << result->body;
        return body;
    }

    // The console still answers after a bad request.
    void expectServing() {
        const json channels = rig.getJson("/api/channels");
        ASSERT_TRUE(channels.is_object());
        EXPECT_EQ(2u, channels["channels"].size());
        EXPECT_TRUE(rig.web->running());
    }

    // Records about three files on a channel through the console and waits
    // until the keeper catalogued a finished whole one (not the short last).
    json recordThroughConsole(int encId = 100) {
        const std::string channel = std::to_string(encId);
        const json started = postJson("/api/channels/" + channel + "/start", 200);
        EXPECT_EQ(0, started["result"]);
        std::this_thread::sleep_for(std::chrono::seconds(3 * kFileSeconds));
        EXPECT_EQ(0, postJson("/api/channels/" + channel + "/stop", 200)["result"]);
        return rig.waitForRecording(
            [&](const json &r) {
                return r["encId"] == encId && r["state"] == "finished" &&
                       r["frames"] >= kFramesPerFile - 2;
            },
            kRecordingWait);
    }

    ConsoleRig rig;
};

TEST(WebCommandLine, HelpAndVersionAnswerAndExitZero) {
    std::string out;
    std::string err;
    int status = dvrtest::runWeb({"--help"}, &out, &err);
    EXPECT_EQ(0, WEXITSTATUS(status)) << err;
    EXPECT_NE(std::string::npos, out.find("Usage: dvr-web [OPTIONS]")) << out;
    EXPECT_NE(std::string::npos, out.find("--token-file FILE")) << out;
    status = dvrtest::runWeb({"--version"}, &out, &err);
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("dvr-web (dvr) " DVR_PROJECT_VERSION "\n", out);
}

TEST(WebCommandLine, ListeningBeyondLoopbackWithoutTokenIsRefused) {
    std::string out;
    std::string err;
    const int status = dvrtest::runWeb({"--listen", "0.0.0.0:0"}, &out, &err);
    EXPECT_EQ(2, WEXITSTATUS(status));
    EXPECT_EQ(
        "dvr-web: listening on 0.0.0.0 opens the console beyond this machine: give "
        "--token-file\nTry 'dvr-web --help'.\n",
        err);
}

TEST(WebCommandLine, BadOptionsExitTwoWithTheReason) {
    dvrtest::TempDir dir;
    const std::string shortToken = dir.write("short", "abc\n");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--listen", "localhost:80"}, "--listen takes a numeric address, not 'localhost'"},
        {{"--listen", "127.0.0.1:99999"}, "--listen takes a port of 0 to 65535, not '99999'"},
        {{"--token-file", dir.file("none")}, "cannot read the token file"},
        {{"--token-file", shortToken}, "must be 16 to 4096 characters"},
        {{"--storage", "relative"}, "--storage takes an absolute directory, not 'relative'"},
        {{"--bogus"}, "unknown or incomplete option '--bogus'"},
        {{"extra"}, "unexpected argument 'extra'"},
    };
    for (const auto &[arguments, message] : cases) {
        std::string out;
        std::string err;
        EXPECT_EQ(2, WEXITSTATUS(dvrtest::runWeb(arguments, &out, &err))) << arguments[0];
        EXPECT_NE(std::string::npos, err.find(message)) << err;
    }
}

TEST_F(WebApi, ChannelsShowStateDevicesAndSettings) {
    const json answer = rig.getJson("/api/channels");
    ASSERT_EQ(2u, answer["channels"].size());
    const json &first = answer["channels"][0];
    EXPECT_EQ(100, first["encId"]);
    EXPECT_EQ("idle", first["state"]);
    EXPECT_EQ(10, first["camId"]);
    EXPECT_EQ(20, first["audId"]);
    EXPECT_EQ(false, first["audioRecording"]);
    EXPECT_EQ(320, first["widthPx"]);
    EXPECT_EQ(240, first["heightPx"]);
    EXPECT_EQ(kFileSeconds, first["fileLengthS"]);
    for (const char *field : {"format", "bitRateMbps", "frameRateFps", "resolution", "timestamp",
                              "userStamp", "file", "fileAgeS"}) {
        EXPECT_TRUE(first.contains(field)) << field;
    }
    EXPECT_TRUE(first["file"].is_null());
    const json &second = answer["channels"][1];
    EXPECT_EQ(101, second["encId"]);
    EXPECT_EQ(11, second["camId"]);
    EXPECT_TRUE(second["audId"].is_null());
}

TEST_F(WebApi, StartNamesTheFileAndShowsItWithItsAge) {
    const json started = postJson("/api/channels/101/start", 200);
    ASSERT_EQ(0, started["result"]);
    const std::string file = started["file"];
    EXPECT_EQ(0u, file.rfind(rig.storage + "/web_c101_", 0)) << file;
    EXPECT_EQ(".ts", file.substr(file.size() - 3));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const json channel = rig.getJson("/api/channels")["channels"][1];
    EXPECT_EQ("recording", channel["state"]);
    EXPECT_EQ(file, channel["file"]);
    EXPECT_GT(channel["fileAgeS"].get<double>(), 0.5);
    EXPECT_EQ(0, postJson("/api/channels/101/stop", 200)["result"]);
    const json stopped = rig.getJson("/api/channels")["channels"][1];
    EXPECT_NE("recording", stopped["state"]);
    EXPECT_TRUE(stopped["file"].is_null());
}

TEST_F(WebApi, StartOfARecordingChannelAndStopOfAnIdleOneAreExplained) {
    ASSERT_EQ(0, postJson("/api/channels/101/start", 200)["result"]);
    json again = postJson("/api/channels/101/start", 409);
    EXPECT_EQ("refused", again["error"]);
    EXPECT_EQ("channel 101 is recording already", again["reason"]);
    ASSERT_EQ(0, postJson("/api/channels/101/stop", 200)["result"]);
    const json stopped = postJson("/api/channels/101/stop", 409);
    EXPECT_EQ("failed", stopped["error"]);
    EXPECT_EQ(-3, stopped["result"]);
    EXPECT_EQ(0u, stopped["reason"].get<std::string>().rfind("-3: ", 0)) << stopped["reason"];
}

TEST_F(WebApi, StartThatWouldAbortTheServiceIsRefusedWithTheGuardsReason) {
    // Audio on without an audio input: the service would abort at the start.
    ASSERT_EQ(0, rig.dvr->setAudioRecording(-1, true));
    const json refused = postJson("/api/channels/101/start", 409);
    EXPECT_EQ("refused", refused["error"]);
    const std::string reason = refused["reason"];
    EXPECT_NE(std::string::npos, reason.find("101")) << reason;
    EXPECT_NE(std::string::npos, reason.find("audio")) << reason;
    EXPECT_TRUE(rig.server.running());
    EXPECT_EQ(dvrspace::DVR_STM_READY, rig.dvr->getCurrentState(101));
    expectServing();
}

TEST_F(WebApi, NextFileNamesTheChannelsNextFile) {
    const json named = postJson("/api/channels/100/next-file", 200);
    EXPECT_EQ(0, named["result"]);
    EXPECT_EQ(0u, named["file"].get<std::string>().rfind(rig.storage + "/web_c100_", 0));
    EXPECT_EQ("ready", rig.getJson("/api/channels")["channels"][0]["state"]);
}

TEST_F(WebApi, UnknownChannelGets404AndTheConsoleKeepsServing) {
    for (const char *path :
         {"/api/channels/7/start", "/api/channels/7/stop", "/api/channels/7/next-file"}) {
        const json answer = postJson(path, 404);
        EXPECT_EQ("unknown channel", answer["error"]);
        EXPECT_EQ("no channel has encoder id 7", answer["reason"]);
    }
    EXPECT_EQ("no channel has encoder id 7",
              rig.getJson("/api/channels/7/snapshot", 404)["reason"]);
    EXPECT_EQ(404, rig.client().Get("/api/channels/abc/snapshot")->status);
    expectServing();
}

TEST_F(WebApi, SnapshotOfAnIdleChannelIsExplained) {
    const json answer = rig.getJson("/api/channels/100/snapshot", 502);
    EXPECT_EQ("failed", answer["error"]);
    EXPECT_EQ(-1, answer["result"]);
    expectServing();
}

TEST_F(WebApi, SnapshotIsAPngOrAJpegOfTheCamerasSize) {
    ASSERT_EQ(0, postJson("/api/channels/100/start", 200)["result"]);
    ASSERT_EQ(0, postJson("/api/channels/101/start", 200)["result"]);
    httplib::Result png = rig.client().Get("/api/channels/100/snapshot?format=png");
    ASSERT_TRUE(png);
    ASSERT_EQ(200, png->status) << png->body;
    EXPECT_EQ("image/png", png->get_header_value("Content-Type"));
    ASSERT_GT(png->body.size(), 24u);
    EXPECT_EQ("\x89PNG", png->body.substr(0, 4));
    // IHDR: width and height, big-endian, at bytes 16 and 20.
    const auto word = [&](size_t at) {
        const auto *b = reinterpret_cast<const unsigned char *>(png->body.data() + at);
        return (b[0] << 24) | (b[1] << 16) | (b[2] << 8) | b[3];
    };
    EXPECT_EQ(320, word(16));
    EXPECT_EQ(240, word(20));
    httplib::Result jpeg = rig.client().Get("/api/channels/101/snapshot?format=jpeg");
    ASSERT_TRUE(jpeg);
    ASSERT_EQ(200, jpeg->status) << jpeg->body;
    EXPECT_EQ("image/jpeg", jpeg->get_header_value("Content-Type"));
    EXPECT_EQ("\xff\xd8\xff", jpeg->body.substr(0, 3));
    EXPECT_EQ("format is png or jpeg",
              rig.getJson("/api/channels/100/snapshot?format=gif", 400)["reason"]);
}

TEST_F(WebApi, RecordingsAreListedNewestFirstWithTheirFiguresAndFiltered) {
    const json finished = recordThroughConsole();
    ASSERT_FALSE(finished.is_null()) << rig.keeper->log();
    const json all = rig.getJson("/api/recordings");
    ASSERT_GE(all["recordings"].size(), 2u);
    int64_t previous = INT64_MAX;
    for (const json &recording : all["recordings"]) {
        EXPECT_LE(recording["startedMs"].get<int64_t>(), previous);
        previous = recording["startedMs"];
        EXPECT_EQ(16u, recording["id"].get<std::string>().size());
        for (const char *field : {"durationS", "bytes", "frames", "missingSlots", "largestGapMs",
                                  "closedCleanly", "locked", "container", "hasAudio"}) {
            EXPECT_TRUE(recording.contains(field)) << field;
        }
    }
    EXPECT_GT(finished["bytes"].get<int64_t>(), 0);
    EXPECT_NEAR(kFileSeconds, finished["durationS"].get<double>(), 1.0);
    EXPECT_FALSE(finished["hasAudio"].get<bool>());
    EXPECT_EQ(0u, rig.getJson("/api/recordings?channel=101")["recordings"].size());
    const int64_t future = finished["startedMs"].get<int64_t>() + 3600 * 1000;
    EXPECT_EQ(0u,
              rig.getJson("/api/recordings?since=" + std::to_string(future))["recordings"].size());
    const json first = rig.getJson("/api/recordings?channel=100&limit=1");
    EXPECT_EQ(1u, first["recordings"].size());
    EXPECT_EQ(all["recordings"][0]["id"], first["recordings"][0]["id"]);
    EXPECT_EQ(0u,
              rig.getJson("/api/recordings?until=" +
                          std::to_string(
                              all["recordings"].back()["startedMs"].get<int64_t>()))["recordings"]
                  .size());
    for (const char *query : {"channel=abc", "since=1x", "limit=0", "limit=5000"}) {
        EXPECT_EQ("bad query", rig.getJson(std::string("/api/recordings?") + query, 400)["error"]);
    }
}

TEST_F(WebApi, RecordingPlaysAsFragmentedMp4WithEveryFrameAndRanges) {
    ASSERT_EQ(0, rig.dvr->setAudioRecording(-1, true));
    const json recording = recordThroughConsole();
    ASSERT_FALSE(recording.is_null()) << rig.keeper->log();
    const std::string path = "/api/recordings/" + recording["id"].get<std::string>() + "/video.mp4";
    const httplib::Result whole = rig.client().Get(path.c_str());
    ASSERT_TRUE(whole);
    ASSERT_EQ(200, whole->status) << whole->body;
    EXPECT_EQ("video/mp4", whole->get_header_value("Content-Type"));
    EXPECT_EQ("bytes", whole->get_header_value("Accept-Ranges"));
    EXPECT_EQ("ftyp", whole->body.substr(4, 4));
    EXPECT_NE(std::string::npos, whole->body.find("moof"));
    // What the MP4 holds, read back: every frame of the recording.
    dvrtest::TempDir dir;
    const std::string copy = dir.write("copy.mp4", whole->body);
    const dvrspace::RecordingInfo info = dvrspace::RecordingReader::read(copy);
    ASSERT_TRUE(info.opened) << info.error;
    EXPECT_EQ(recording["frames"].get<int64_t>(), static_cast<int64_t>(info.videoFrames()));
    EXPECT_TRUE(info.hasAudio);
    EXPECT_EQ("aac", info.audioCodec);
    EXPECT_NEAR(recording["durationS"].get<double>(), info.durationSeconds, 0.3);
    // A range: 206 with exactly those bytes.
    const httplib::Result part = rig.client().Get(path.c_str(), {{"Range", "bytes=100-299"}});
    ASSERT_TRUE(part);
    EXPECT_EQ(206, part->status);
    EXPECT_EQ(whole->body.substr(100, 200), part->body);
    EXPECT_EQ("bytes 100-299/" + std::to_string(whole->body.size()),
              part->get_header_value("Content-Range"));
    const httplib::Result beyond = rig.client().Get(
        path.c_str(), {{"Range", "bytes=" + std::to_string(whole->body.size() + 10) + "-"}});
    ASSERT_TRUE(beyond);
    EXPECT_EQ(416, beyond->status);
    expectServing();
}

TEST_F(WebApi, AviRecordingPlaysWithEveryFrame) {
    ASSERT_EQ(0, rig.dvr->setOutputFormat(101, dvrspace::DVR_FILE_FORMAT_AVI));
    const json recording = recordThroughConsole(101);
    ASSERT_FALSE(recording.is_null()) << rig.keeper->log();
    EXPECT_EQ("avi", recording["container"]);
    const std::string path = "/api/recordings/" + recording["id"].get<std::string>() + "/video.mp4";
    const httplib::Result whole = rig.client().Get(path.c_str());
    ASSERT_TRUE(whole);
    ASSERT_EQ(200, whole->status) << whole->body;
    dvrtest::TempDir dir;
    const dvrspace::RecordingInfo info =
        dvrspace::RecordingReader::read(dir.write("copy.mp4", whole->body));
    ASSERT_TRUE(info.opened) << info.error;
    EXPECT_EQ(recording["frames"].get<int64_t>(), static_cast<int64_t>(info.videoFrames()));
    EXPECT_EQ(recording["missingSlots"].get<int64_t>(), info.missingSlots());
}

TEST_F(WebApi, ThumbnailIsTheFirstPictureAsJpegOrPng) {
    const json recording = recordThroughConsole();
    ASSERT_FALSE(recording.is_null()) << rig.keeper->log();
    const std::string path = "/api/recordings/" + recording["id"].get<std::string>() + "/thumbnail";
    const httplib::Result jpeg = rig.client().Get(path.c_str());
    ASSERT_TRUE(jpeg);
    ASSERT_EQ(200, jpeg->status) << jpeg->body;
    EXPECT_EQ("image/jpeg", jpeg->get_header_value("Content-Type"));
    EXPECT_EQ("\xff\xd8\xff", jpeg->body.substr(0, 3));
    const httplib::Result png = rig.client().Get((path + "?format=png").c_str());
    ASSERT_TRUE(png);
    ASSERT_EQ(200, png->status);
    EXPECT_EQ("\x89PNG", png->body.substr(0, 4));
}

TEST_F(WebApi, LockAndUnlockReachTheCatalogAndTheFile) {
    const json recording = recordThroughConsole();
    ASSERT_FALSE(recording.is_null()) << rig.keeper->log();
    const std::string id = recording["id"];
    const json locked = postJson("/api/recordings/" + id + "/lock", 200);
    EXPECT_EQ(true, locked["locked"]);
    const std::string file = recording["path"];
    {
        const auto catalog =
            dvrkeeper::Catalog::open(rig.database, dvrkeeper::Catalog::Damaged::kFail);
        EXPECT_TRUE(catalog->find(file)->locked);
    }
    struct stat status {};
    ASSERT_EQ(0, stat(file.c_str(), &status));
    EXPECT_EQ(0u, status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH));
    EXPECT_EQ(false, postJson("/api/recordings/" + id + "/unlock", 200)["locked"]);
    const auto catalog = dvrkeeper::Catalog::open(rig.database, dvrkeeper::Catalog::Damaged::kFail);
    EXPECT_FALSE(catalog->find(file)->locked);
    ASSERT_EQ(0, stat(file.c_str(), &status));
    EXPECT_NE(0u, status.st_mode & S_IWUSR);
}

TEST_F(WebApi, PathTraversalAndUnknownIdsGet4xxAndNothingIsServed) {
    const std::vector<std::pair<std::string, int>> cases = {
        {"/api/recordings/..%2f..%2f..%2fetc%2fpasswd/video.mp4", 404},
        {"/api/recordings/../../../etc/passwd/video.mp4", 404},
        {"/api/recordings/%2e%2e/thumbnail", 400},
        {"/api/recordings/0123456789abcdef/video.mp4", 404},
        {"/../../etc/passwd", 404},
        {"/console.js/../../etc/passwd", 404},
        {"/etc/passwd", 404},
    };
    for (const auto &[path, status] : cases) {
        const httplib::Result result = rig.client().Get(path.c_str());
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(status, result->status) << path << ": " << result->body;
        EXPECT_EQ(std::string::npos, result->body.find("root:")) << path;
        EXPECT_FALSE(json::parse(result->body, nullptr, false).is_discarded()) << result->body;
    }
    EXPECT_EQ("bad id", postJson("/api/recordings/..%2e/lock", 400)["error"]);
    EXPECT_EQ("not found", postJson("/api/recordings/..%2fx/lock", 404)["error"]);
    expectServing();
}

TEST_F(WebApi, OversizedBodyGets413AndChangesNothing) {
    ASSERT_EQ(0, postJson("/api/channels/101/start", 200)["result"]);
    const httplib::Result result = post("/api/channels/101/stop", std::string(64 * 1024, 'x'));
    ASSERT_TRUE(result);
    EXPECT_EQ(413, result->status);
    EXPECT_EQ(dvrspace::DVR_STM_RECORDING, rig.dvr->getCurrentState(101));
    expectServing();
    EXPECT_EQ(0, postJson("/api/channels/101/stop", 200)["result"]);
}

TEST_F(WebApi, PageAndItsFilesAreServed) {
    for (const auto &[path, type] : std::vector<std::pair<std::string, std::string>>{
             {"/", "text/html; charset=utf-8"},
             {"/index.html", "text/html; charset=utf-8"},
             {"/console.css", "text/css; charset=utf-8"},
             {"/console.js", "text/javascript; charset=utf-8"}}) {
        const httplib::Result result = rig.client().Get(path.c_str());
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(200, result->status) << path;
        EXPECT_EQ(type, result->get_header_value("Content-Type"));
        EXPECT_FALSE(result->body.empty());
    }
    EXPECT_EQ("nosniff", rig.client().Get("/")->get_header_value("X-Content-Type-Options"));
}

// Reads the event stream until count events arrived (or 60 s passed).
std::vector<json> readEvents(httplib::Client client, const std::string &path, size_t count,
                             const httplib::Headers &headers = {}) {
    std::vector<json> events;
    std::string buffer;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    client.Get(path.c_str(), headers, [&](const char *data, size_t length) {
        buffer.append(data, length);
        for (size_t end; (end = buffer.find("\n\n")) != std::string::npos;) {
            const std::string block = buffer.substr(0, end);
            buffer.erase(0, end + 2);
            const size_t data = block.find("data: ");
            if (data != std::string::npos) {
                events.push_back(json::parse(block.substr(data + 6)));
            }
        }
        return events.size() < count && std::chrono::steady_clock::now() < deadline;
    });
    return events;
}

TEST_F(WebApi, EventsArriveOnceInOrderAndResumeAfterTheLastSeen) {
    ASSERT_EQ(0, postJson("/api/channels/101/start", 200)["result"]);
    // Start, finish of the first file, start of the next.
    const std::vector<json> events = readEvents(rig.client(), "/api/events", 3);
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ("record-start", events[0]["type"]);
    EXPECT_EQ(101, events[0]["encId"]);
    EXPECT_EQ(0u, events[0]["file"].get<std::string>().rfind(rig.storage + "/web_c101_", 0));
    EXPECT_EQ("record-finish", events[1]["type"]);
    EXPECT_EQ(events[0]["file"], events[1]["file"]);
    EXPECT_EQ("record-start", events[2]["type"]);
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(i + 1, events[i]["id"].get<uint64_t>());
    }
    const std::vector<json> resumed =
        readEvents(rig.client(), "/api/events", 1, {{"Last-Event-ID", "2"}});
    ASSERT_EQ(1u, resumed.size());
    EXPECT_EQ(3u, resumed[0]["id"].get<uint64_t>());
    EXPECT_EQ(400, rig.client().Get("/api/events", {{"Last-Event-ID", "x"}})->status);
    EXPECT_EQ(0, postJson("/api/channels/101/stop", 200)["result"]);
}

TEST(WebToken, EveryRequestNeedsTheTokenOnAWiderListener) {
    ConsoleRig rig;
    const std::string token = "0123456789abcdef-token";
    const std::string tokenFile = rig.server.dir().write("token", token + "\n");
    rig.server.start();
    ASSERT_TRUE(rig.startWeb({"--listen", "0.0.0.0:0", "--token-file", tokenFile, "--db",
                              rig.database, "--arena", rig.arena}))
        << rig.web->log();
    for (const char *path : {"/", "/api/channels", "/api/recordings", "/api/events",
                             "/api/recordings/0123456789abcdef/video.mp4"}) {
        const httplib::Result result = rig.client().Get(path);
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(401, result->status) << path;
        EXPECT_EQ("unauthorised", json::parse(result->body)["error"]) << path;
    }
    EXPECT_EQ(401, rig.client().Post("/api/channels/100/start", "", "text/plain")->status);
    EXPECT_EQ(401, rig.client().Get("/", {{"Authorization", "Bearer wrong-token-wrong"}})->status);
    EXPECT_EQ(401, rig.client().Get(("/?token=" + token + "x").c_str())->status);
    EXPECT_EQ(200, rig.client().Get("/", {{"Authorization", "Bearer " + token}})->status);
    EXPECT_EQ(200, rig.client().Get(("/console.js?token=" + token).c_str())->status);
    EXPECT_TRUE(rig.web->running());
}

TEST(WebWithoutService, ChannelsAnswer503AndRecordingsWithoutCatalog503) {
    ConsoleRig rig;
    ASSERT_TRUE(
        rig.startWeb({"--listen", "127.0.0.1:0", "--db", rig.database, "--service", "nobody-here"}))
        << rig.web->log();
    const json channels = rig.getJson("/api/channels", 503);
    EXPECT_EQ("no service", channels["error"]);
    EXPECT_EQ("the recording service is not running (the console waits for it)",
              channels["reason"]);
    const json recordings = rig.getJson("/api/recordings", 503);
    EXPECT_EQ("no catalog", recordings["error"]);
    EXPECT_EQ("no catalog at " + rig.database + " (is dvr-keeper running?)", recordings["reason"]);
    struct stat status {};
    EXPECT_NE(0, stat(rig.database.c_str(), &status)) << "the console must not create a catalog";
    EXPECT_EQ(0, WEXITSTATUS(rig.web->stop(SIGTERM)));
}

}  // namespace
