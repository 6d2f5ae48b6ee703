#include "ConsoleServer.h"

#include <httplib.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>

#include "ChannelControl.h"
#include "Mp4Remuxer.h"
#include "Thumbnail.h"

using nlohmann::json;

namespace dvrweb {

namespace {

constexpr int kThreads = 24;
constexpr auto kEventWait = std::chrono::seconds(15);
const char *const kPageFiles[][2] = {{"index.html", "text/html; charset=utf-8"},
                                     {"console.css", "text/css; charset=utf-8"},
                                     {"console.js", "text/javascript; charset=utf-8"}};

void sendJson(httplib::Response &response, int status, const json &body) {
    response.status = status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(body.dump(-1, ' ', false, json::error_handler_t::replace),
                         "application/json");
}

void sendError(httplib::Response &response, int status, const std::string &error,
               const std::string &reason) {
    sendJson(response, status, {{"error", error}, {"reason", reason}});
}

// A JSON answer of ChannelControl, its "status" taken out.
void sendAnswer(httplib::Response &response, json answer) {
    const int status = answer.value("status", 500);
    answer.erase("status");
    sendJson(response, status, answer);
}

void sendUnanswered(httplib::Response &response, ServiceLink::Outcome outcome) {
    const bool noService = outcome == ServiceLink::Outcome::kNoService;
    sendError(response, noService ? 503 : 504, noService ? "no service" : "timeout",
              ServiceLink::describe(outcome));
}

// Compares every byte whatever the first difference, so the time taken does
// not tell how much of a guessed token was right.
bool constantTimeEqual(const std::string &given, const std::string &token) {
    if (given.size() != token.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ token[i]);
    }
    return difference == 0;
}

std::optional<int64_t> integerParam(const httplib::Request &request, const char *name, bool *bad) {
    if (!request.has_param(name)) {
        return std::nullopt;
    }
    const std::string text = request.get_param_value(name);
    if (text.empty() || text.size() > 18 ||
        text.find_first_not_of("0123456789", text[0] == '-' ? 1 : 0) != std::string::npos ||
        text == "-") {
        *bad = true;
        return std::nullopt;
    }
    return std::stoll(text);
}

std::optional<int> channelOf(const std::string &text) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoi(text);
}

// Whether every range of the request starts inside size bytes (a suffix
// range, "-N", always does when N > 0).
bool rangesSatisfiable(const httplib::Request &request, size_t size) {
    for (const auto &[first, last] : request.ranges) {
        if (first < 0 ? last <= 0 : static_cast<size_t>(first) >= size) {
            return false;
        }
    }
    return true;
}

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The directory of the page's files: --web-root, else the installed one
// beside this program (PREFIX/share/dvr/web), else the build tree's.
std::string webRoot(const std::string &option) {
    if (!option.empty()) {
        return option;
    }
    char self[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        std::string directory(self, static_cast<size_t>(length));
        directory = directory.substr(0, directory.rfind('/'));
        const std::string installed = directory + "/../share/dvr/web";
        struct stat status {};
        if (stat((installed + "/index.html").c_str(), &status) == 0) {
            return installed;
        }
    }
    return DVR_WEB_BUILD_ROOT;
}

}  // namespace

ConsoleServer::ConsoleServer(const WebOptions &options)
    : mOptions(options),
      mServer(std::make_unique<httplib::Server>()),
      mLink(options.service, mEvents),
      mIndex(options.catalog),
      mSnapshots(options.arena),
      mCache(kCacheBytes) {}

ConsoleServer::~ConsoleServer() {
    stop();
}

bool ConsoleServer::bind(std::string *error) {
    const std::string root = webRoot(mOptions.webRoot);
    for (const auto &file : kPageFiles) {
        std::ifstream in(root + "/" + file[0], std::ios::binary);
        if (!in) {
            *error = "cannot read the page's file " + root + "/" + file[0];
            return false;
        }
        std::stringstream bytes;
        bytes << in.rdbuf();
        mFiles["/" + std::string(file[0])] = {file[1], bytes.str()};
    }
    mFiles["/"] = mFiles["/index.html"];
    routes();
    if (mOptions.port == 0) {
        mPort = mServer->bind_to_any_port(mOptions.host);
    } else if (mServer->bind_to_port(mOptions.host, mOptions.port)) {
        mPort = mOptions.port;
    }
    if (mPort <= 0) {
        *error = "cannot listen on " + mOptions.host + ":" + std::to_string(mOptions.port) + ": " +
                 std::strerror(errno);
        return false;
    }
    return true;
}

void ConsoleServer::listen() {
    mLink.start();
    mServer->listen_after_bind();
}

void ConsoleServer::stop() {
    mEvents.close();
    mServer->stop();
}

bool ConsoleServer::authorised(const httplib::Request &request) const {
    if (mOptions.token.empty()) {
        return true;
    }
    const std::string header = request.get_header_value("Authorization");
    const std::string bearer = "Bearer ";
    if (header.compare(0, bearer.size(), bearer) == 0) {
        return constantTimeEqual(header.substr(bearer.size()), mOptions.token);
    }
    return constantTimeEqual(request.get_param_value("token"), mOptions.token);
}

void ConsoleServer::routes() {
    httplib::Server &server = *mServer;
    server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    server.set_payload_max_length(kMaxBodyBytes);
    server.set_read_timeout(5, 0);
    server.set_write_timeout(10, 0);
    server.set_keep_alive_timeout(5);
    server.set_pre_routing_handler(
        [this](const httplib::Request &request, httplib::Response &response) {
            // The token may travel in the URL: no page this one links to may see it.
            response.set_header("Referrer-Policy", "no-referrer");
            response.set_header("X-Content-Type-Options", "nosniff");
            response.set_header("Content-Security-Policy",
                                "default-src 'self'; img-src 'self' blob:; media-src 'self' blob:");
            if (!authorised(request)) {
                sendError(response, 401, "unauthorised",
                          "this console needs its token: 'Authorization: Bearer TOKEN' or ?token=");
                return httplib::Server::HandlerResponse::Handled;
            }
            return httplib::Server::HandlerResponse::Unhandled;
        });
    server.set_error_handler([](const httplib::Request &, httplib::Response &response) {
        if (response.body.empty()) {
            const int status = response.status;
            sendError(response, status,
                      status == 413   ? "too large"
                      : status == 404 ? "not found"
                                      : "bad request",
                      status == 413 ? "the request's body is over 4096 bytes"
                      : status == 404
                          ? "no such page or API"
                          : "the request was malformed (HTTP " + std::to_string(status) + ")");
        }
    });
    server.set_exception_handler(
        [](const httplib::Request &, httplib::Response &response, std::exception_ptr failure) {
            std::string what = "unknown";
            try {
                std::rethrow_exception(failure);
            } catch (const std::exception &error) {
                what = error.what();
            } catch (...) {
            }
            sendError(response, 500, "internal", what);
        });
    server.set_logger([](const httplib::Request &request, const httplib::Response &response) {
        const std::string range = request.get_header_value("Range");
        // The path only: the query may carry the token.
        std::fprintf(stderr, "dvr-web: %s %s %d%s%s\n", request.method.c_str(),
                     request.path.c_str(), response.status, range.empty() ? "" : " range ",
                     range.c_str());
    });
    const auto page = [this](const httplib::Request &request, httplib::Response &response) {
        const auto file = mFiles.find(request.path);
        if (file == mFiles.end()) {
            sendError(response, 404, "not found", "no such page");
            return;
        }
        response.set_header("Cache-Control", "no-cache");
        response.set_content(file->second.second, file->second.first.c_str());
    };
    server.Get("/", page);
    server.Get(R"(/[a-z]+\.(html|css|js))", page);
    server.Get("/api/channels", [this](const auto &q, auto &r) { channels(q, r); });
    server.Post(R"(/api/channels/(\d{1,9})/(start|stop|next-file))",
                [this](const auto &q, auto &r) { channelAction(q, r); });
    server.Get(R"(/api/channels/(\d{1,9})/snapshot)",
               [this](const auto &q, auto &r) { snapshot(q, r); });
    server.Get("/api/recordings", [this](const auto &q, auto &r) { recordings(q, r); });
    server.Get(R"(/api/recordings/([^/]+)/(video\.mp4|thumbnail))",
               [this](const auto &q, auto &r) { recordingMedia(q, r); });
    server.Post(R"(/api/recordings/([^/]+)/(lock|unlock))",
                [this](const auto &q, auto &r) { lock(q, r); });
    server.Get("/api/events", [this](const auto &q, auto &r) { events(q, r); });
}

void ConsoleServer::channels(const httplib::Request &, httplib::Response &response) {
    json answer;
    const ServiceLink::Outcome outcome = mLink.run(
        [](dvrspace::IDVR &service) { return ChannelControl::describeAll(service); }, &answer);
    if (outcome != ServiceLink::Outcome::kDone) {
        sendUnanswered(response, outcome);
        return;
    }
    const int64_t now = nowMs();
    for (json &channel : answer["channels"]) {
        std::string file;
        int64_t startedMs = 0;
        channel["file"] = nullptr;
        channel["fileAgeS"] = nullptr;
        if (channel["state"] != "recording") {
            continue;
        }
        if (!mEvents.currentFile(channel["encId"].get<int>(), &file, &startedMs)) {
            // Started before the console: the keeper saw it start.
            try {
                RecordingIndex::Query query;
                query.encId = channel["encId"].get<int>();
                query.limit = 1;
                const json newest = mIndex.list(query)["recordings"];
                if (newest.empty() || newest[0]["state"] != "recording") {
                    continue;
                }
                file = newest[0]["path"];
                startedMs = newest[0]["startedMs"];
            } catch (const CatalogUnavailable &) {
                continue;
            }
        }
        channel["file"] = file;
        channel["fileAgeS"] = static_cast<double>(now - startedMs) / 1000.0;
    }
    sendAnswer(response, answer);
}

void ConsoleServer::channelAction(const httplib::Request &request, httplib::Response &response) {
    const std::optional<int> encId = channelOf(request.matches[1]);
    if (!encId) {
        sendError(response, 404, "unknown channel", "no channel has that encoder id");
        return;
    }
    const std::string action = request.matches[2];
    const std::string storage = mOptions.storage;
    const int channel = *encId;
    const std::time_t now = std::time(nullptr);
    json answer;
    const ServiceLink::Outcome outcome = mLink.run(
        [action, storage, channel, now](dvrspace::IDVR &service) {
            if (action == "start") {
                return ChannelControl::start(service, channel, storage, now);
            }
            if (action == "stop") {
                return ChannelControl::stop(service, channel);
            }
            return ChannelControl::nextFile(service, channel, storage, now);
        },
        &answer);
    if (outcome != ServiceLink::Outcome::kDone) {
        sendUnanswered(response, outcome);
        return;
    }
    sendAnswer(response, answer);
}

void ConsoleServer::snapshot(const httplib::Request &request, httplib::Response &response) {
    const std::optional<int> encId = channelOf(request.matches[1]);
    const std::optional<ImageType> type = ImageEncoder::parseType(
        request.has_param("format") ? request.get_param_value("format") : "jpeg");
    if (!type) {
        sendError(response, 400, "bad format", "format is png or jpeg");
        return;
    }
    if (!encId) {
        sendError(response, 404, "unknown channel", "no channel has that encoder id");
        return;
    }
    const int channel = *encId;
    json answer;
    const ServiceLink::Outcome outcome = mLink.run(
        [channel](dvrspace::IDVR &service) { return ChannelControl::snapshot(service, channel); },
        &answer);
    if (outcome != ServiceLink::Outcome::kDone) {
        sendUnanswered(response, outcome);
        return;
    }
    if (answer["status"] != 200) {
        sendAnswer(response, answer);
        return;
    }
    SnapshotFrame frame;
    frame.lumaPa = answer["planes"][0];
    frame.chromaPa = answer["planes"][1];
    frame.width = answer["width"];
    frame.height = answer["height"];
    frame.stride = answer["stride"];
    std::string error;
    std::string image = mSnapshots.encode(frame, *type, &error);
    if (image.empty()) {
        sendError(response, 502, "no picture", error);
        return;
    }
    response.set_header("Cache-Control", "no-store");
    response.set_content(std::move(image), ImageEncoder::mimeType(*type));
}

void ConsoleServer::recordings(const httplib::Request &request, httplib::Response &response) {
    bool bad = false;
    RecordingIndex::Query query;
    query.encId = integerParam(request, "channel", &bad);
    query.sinceMs = integerParam(request, "since", &bad);
    query.untilMs = integerParam(request, "until", &bad);
    const std::optional<int64_t> limit = integerParam(request, "limit", &bad);
    if (bad || (limit && (*limit < 1 || *limit > RecordingIndex::kMaxLimit))) {
        sendError(response, 400, "bad query",
                  "channel, since and until (ms since the epoch) are integers; limit is 1 to " +
                      std::to_string(RecordingIndex::kMaxLimit));
        return;
    }
    if (limit) {
        query.limit = static_cast<int>(*limit);
    }
    try {
        sendJson(response, 200, mIndex.list(query));
    } catch (const CatalogUnavailable &unavailable) {
        sendError(response, 503, "no catalog", unavailable.reason);
    }
}

std::optional<dvrkeeper::Recording> ConsoleServer::recordingOf(const std::string &id,
                                                               httplib::Response &response) {
    if (!RecordingIndex::isId(id)) {
        sendError(response, 400, "bad id",
                  "a recording's id is 16 hex digits from /api/recordings");
        return std::nullopt;
    }
    try {
        std::optional<dvrkeeper::Recording> recording = mIndex.find(id);
        if (!recording) {
            sendError(response, 404, "not found", "no recording with id " + id + " in the catalog");
        }
        return recording;
    } catch (const CatalogUnavailable &unavailable) {
        sendError(response, 503, "no catalog", unavailable.reason);
        return std::nullopt;
    }
}

void ConsoleServer::recordingMedia(const httplib::Request &request, httplib::Response &response) {
    const bool video = request.matches[2] == "video.mp4";
    std::optional<ImageType> type = ImageType::kJpeg;
    if (!video && request.has_param("format")) {
        type = ImageEncoder::parseType(request.get_param_value("format"));
    }
    if (!type) {
        sendError(response, 400, "bad format", "format is png or jpeg");
        return;
    }
    const std::optional<dvrkeeper::Recording> recording = recordingOf(request.matches[1], response);
    if (!recording) {
        return;
    }
    if (recording->state == dvrkeeper::Recording::State::kRecording ||
        recording->state == dvrkeeper::Recording::State::kMissing) {
        sendError(response, 409, "not playable",
                  recording->state == dvrkeeper::Recording::State::kMissing
                      ? "the recording's file is gone"
                      : "the recording is still being written");
        return;
    }
    struct stat status {};
    if (stat(recording->path.c_str(), &status) != 0) {
        sendError(response, 404, "gone", "the recording's file is gone");
        return;
    }
    const std::string path = recording->path;
    const std::string key = std::string(video                     ? "mp4"
                                        : type == ImageType::kPng ? "png"
                                                                  : "jpeg") +
                            ":" + path + ":" + std::to_string(status.st_size) + ":" +
                            std::to_string(status.st_mtim.tv_sec) + "." +
                            std::to_string(status.st_mtim.tv_nsec);
    std::string error;
    const ImageType imageType = *type;
    const MediaCache::Bytes bytes = mCache.get(
        key,
        [video, path, imageType](std::string *failure) {
            return video ? Mp4Remuxer::remux(path, RemuxLimits{}, failure)
                         : Thumbnail::make(path, imageType, failure);
        },
        &error);
    if (bytes == nullptr) {
        sendError(response, 422, "unreadable", error);
        return;
    }
    if (!rangesSatisfiable(request, bytes->size())) {
        response.set_header("Content-Range", "bytes */" + std::to_string(bytes->size()));
        sendError(response, 416, "bad range",
                  "the media is " + std::to_string(bytes->size()) + " bytes long");
        return;
    }
    response.set_header("Cache-Control", "private, max-age=3600");
    response.set_header("Accept-Ranges", "bytes");
    response.set_content_provider(bytes->size(),
                                  video ? "video/mp4" : ImageEncoder::mimeType(imageType),
                                  [bytes](size_t offset, size_t length, httplib::DataSink &sink) {
                                      return sink.write(bytes->data() + offset, length);
                                  });
}

void ConsoleServer::lock(const httplib::Request &request, httplib::Response &response) {
    const bool locked = request.matches[2] == "lock";
    const std::optional<dvrkeeper::Recording> recording = recordingOf(request.matches[1], response);
    if (!recording) {
        return;
    }
    try {
        if (!mIndex.setLocked(request.matches[1], locked)) {
            sendError(response, 404, "not found", "the recording left the catalog");
            return;
        }
        const std::optional<dvrkeeper::Recording> now = mIndex.find(request.matches[1]);
        sendJson(response, 200, now ? RecordingIndex::toJson(*now) : json{{"locked", locked}});
    } catch (const CatalogUnavailable &unavailable) {
        sendError(response, 503, "no catalog", unavailable.reason);
    }
}

void ConsoleServer::events(const httplib::Request &request, httplib::Response &response) {
    uint64_t after = 0;
    const std::string lastId = request.get_header_value("Last-Event-ID");
    bool bad = false;
    if (!lastId.empty()) {
        if (lastId.size() > 18 || lastId.find_first_not_of("0123456789") != std::string::npos) {
            sendError(response, 400, "bad Last-Event-ID", "an event id is a number");
            return;
        }
        after = std::stoull(lastId);
    } else if (const std::optional<int64_t> param = integerParam(request, "after", &bad)) {
        after = static_cast<uint64_t>(std::max<int64_t>(0, *param));
    }
    if (bad) {
        sendError(response, 400, "bad query", "after is an event id");
        return;
    }
    if (++mEventStreams > kMaxEventStreams) {
        --mEventStreams;
        sendError(response, 503, "busy", "too many event streams are open");
        return;
    }
    struct Stream {
        uint64_t last;
        std::chrono::steady_clock::time_point end;
        bool greeted = false;
    };
    auto stream = std::make_shared<Stream>(
        Stream{after, std::chrono::steady_clock::now() + kEventStreamLifetime});
    response.set_header("Cache-Control", "no-store");
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, stream](size_t, httplib::DataSink &sink) {
            if (!stream->greeted) {
                stream->greeted = true;
                const std::string hello = "retry: 2000\n\n";
                return sink.write(hello.data(), hello.size());
            }
            if (std::chrono::steady_clock::now() > stream->end || mEvents.closed()) {
                sink.done();
                return true;
            }
            const std::vector<ConsoleEvent> events = mEvents.after(stream->last, kEventWait);
            std::string text;
            for (const ConsoleEvent &event : events) {
                text += "id: " + std::to_string(event.id) + "\nevent: " + event.type +
                        "\ndata: " + event.json() + "\n\n";
                stream->last = event.id;
            }
            if (text.empty()) {
                text = ": idle\n\n";
            }
            return sink.write(text.data(), text.size());
        },
        [this](bool) { --mEventStreams; });
}

}  // namespace dvrweb
