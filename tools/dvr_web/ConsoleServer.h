// The web console's HTTP server: the page's files, the JSON API over the
// service (channels, start, stop, next file, snapshot) and the keeper's
// catalog (recordings, MP4, thumbnails, lock), and the notifications as
// server-sent events. Every request is checked for the token when one is
// set, bodies are limited to kMaxBodyBytes, and every handler has a time
// limit. listen() runs on the caller's thread until stop() (any thread).
#ifndef DVR_WEB_CONSOLE_SERVER_H
#define DVR_WEB_CONSOLE_SERVER_H

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "EventLog.h"
#include "MediaCache.h"
#include "RecordingIndex.h"
#include "ServiceLink.h"
#include "SnapshotImage.h"
#include "WebOptions.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace dvrweb {

class ConsoleServer {
public:
    static constexpr size_t kMaxBodyBytes = 4096;
    static constexpr int kMaxEventStreams = 8;
    static constexpr int64_t kCacheBytes = int64_t{512} << 20;
    // A page's event stream is ended after this long; it reconnects and
    // resumes after the last event it saw.
    static constexpr auto kEventStreamLifetime = std::chrono::minutes(10);

    explicit ConsoleServer(const WebOptions &options);
    ~ConsoleServer();
    ConsoleServer(const ConsoleServer &) = delete;
    ConsoleServer &operator=(const ConsoleServer &) = delete;

    // Loads the page's files and binds; false with *error set when either
    // failed. The port actually bound is port() (for --listen ADDR:0).
    bool bind(std::string *error);
    int port() const { return mPort; }
    // Serves until stop(); starts the service link first.
    void listen();
    void stop();

private:
    void routes();
    bool authorised(const httplib::Request &request) const;
    void channels(const httplib::Request &request, httplib::Response &response);
    void channelAction(const httplib::Request &request, httplib::Response &response);
    void snapshot(const httplib::Request &request, httplib::Response &response);
    void recordings(const httplib::Request &request, httplib::Response &response);
    void recordingMedia(const httplib::Request &request, httplib::Response &response);
    void lock(const httplib::Request &request, httplib::Response &response);
    void events(const httplib::Request &request, httplib::Response &response);
    // Finds the recording of the request's id; answers 400 or 404 itself.
    std::optional<dvrkeeper::Recording> recordingOf(const std::string &id,
                                                    httplib::Response &response);

    const WebOptions mOptions;
    std::unique_ptr<httplib::Server> mServer;
    EventLog mEvents;
    ServiceLink mLink;
    RecordingIndex mIndex;
    SnapshotImage mSnapshots;
    MediaCache mCache;
    std::map<std::string, std::pair<std::string, std::string>> mFiles;  // path: type, bytes
    std::atomic<int> mEventStreams{0};
    int mPort = 0;
};

}  // namespace dvrweb

#endif  // DVR_WEB_CONSOLE_SERVER_H
