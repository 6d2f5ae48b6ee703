#include "EventLog.h"

#include <nlohmann/json.hpp>

namespace dvrweb {

std::string ConsoleEvent::json() const {
    nlohmann::json object = {
        {"id", id}, {"type", type}, {"encId", encId}, {"value", value}, {"timeMs", timeMs}};
    object["file"] = file.empty() ? nlohmann::json(nullptr) : nlohmann::json(file);
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void EventLog::append(ConsoleEvent event) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        event.id = ++mLastId;
        const auto current = mCurrent.find(event.encId);
        if (event.type == "record-start") {
            mCurrent[event.encId] = {event.file, event.timeMs};
        } else if (current != mCurrent.end() &&
                   (event.type != "record-finish" || current->second.first == event.file)) {
            // A finish of an earlier file (a roll-over reported late) keeps the new one.
            mCurrent.erase(current);
        }
        mEvents.push_back(std::move(event));
        if (mEvents.size() > kCapacity) {
            mEvents.pop_front();
        }
    }
    mChanged.notify_all();
}

std::vector<ConsoleEvent> EventLog::after(uint64_t afterId, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, timeout, [&] { return mClosed || mLastId > afterId; });
    std::vector<ConsoleEvent> events;
    if (mClosed) {
        return events;
    }
    for (const ConsoleEvent &event : mEvents) {
        if (event.id > afterId) {
            events.push_back(event);
        }
    }
    return events;
}

uint64_t EventLog::lastId() {
    std::lock_guard<std::mutex> guard(mLock);
    return mLastId;
}

bool EventLog::currentFile(int encId, std::string *file, int64_t *startedMs) {
    std::lock_guard<std::mutex> guard(mLock);
    const auto current = mCurrent.find(encId);
    if (current == mCurrent.end()) {
        return false;
    }
    *file = current->second.first;
    *startedMs = current->second.second;
    return true;
}

void EventLog::close() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
    }
    mChanged.notify_all();
}

bool EventLog::closed() {
    std::lock_guard<std::mutex> guard(mLock);
    return mClosed;
}

}  // namespace dvrweb
