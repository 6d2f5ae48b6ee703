// The notifications the console heard from the service (record start and
// finish, errors, abnormal end), numbered in the order they arrived and kept
// for a while, so that every page sees each once and in order (server-sent
// events resume after the last number a page saw). Any thread.
#ifndef DVR_WEB_EVENT_LOG_H
#define DVR_WEB_EVENT_LOG_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace dvrweb {

struct ConsoleEvent {
    uint64_t id = 0;   // 1, 2, ...
    std::string type;  // "record-start", "record-finish", "error", "error-severe", "abnormal"
    int encId = -1;
    std::string file;    // record start and finish
    int value = 0;       // error code, abnormal value
    int64_t timeMs = 0;  // wall clock

    // The event as one JSON object.
    std::string json() const;
};

class EventLog {
public:
    static constexpr size_t kCapacity = 1000;

    // Numbers and keeps the event; wakes the waiters.
    void append(ConsoleEvent event);
    // The kept events numbered after afterId, waiting up to timeout for one
    // when there is none yet. Empty after a timeout or close().
    std::vector<ConsoleEvent> after(uint64_t afterId, std::chrono::milliseconds timeout);
    // The number of the newest event, 0 before the first.
    uint64_t lastId();
    // The newest file each channel started and has not finished, with its
    // start (wall clock ms); false when there is none.
    bool currentFile(int encId, std::string *file, int64_t *startedMs);
    // Ends every wait (the server stops).
    void close();
    bool closed();

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<ConsoleEvent> mEvents;
    uint64_t mLastId = 0;
    // Per channel: the file it is writing and when that began.
    std::map<int, std::pair<std::string, int64_t>> mCurrent;
    bool mClosed = false;
};

}  // namespace dvrweb

#endif  // DVR_WEB_EVENT_LOG_H
