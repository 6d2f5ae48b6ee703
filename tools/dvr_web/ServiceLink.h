// The console's connection to the recording service: connects (and, after
// the service died, connects again) on a thread of its own, attaches the
// callback that fills the event log, and runs requests with a time limit.
// A request that the service does not answer in time (a wedged channel never
// answers) is given up: its thread stays blocked in the call, and while too
// many are, no further request is sent. Any thread.
#ifndef DVR_WEB_SERVICE_LINK_H
#define DVR_WEB_SERVICE_LINK_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "EventLog.h"
#include "IDVR.h"

namespace dvrweb {

class ServiceLink {
public:
    static constexpr auto kCallTimeout = std::chrono::seconds(5);
    static constexpr int kMaxStuckCalls = 4;

    enum class Outcome { kDone, kNoService, kTimedOut, kTooManyStuck };

    ServiceLink(std::string serviceName, EventLog &events);
    // Stops the connecting thread; the client detaches from the service.
    ~ServiceLink();
    ServiceLink(const ServiceLink &) = delete;
    ServiceLink &operator=(const ServiceLink &) = delete;

    void start();
    bool connected();
    // Runs work with the service on a thread of its own and waits up to
    // kCallTimeout for it; *result receives what it returned. work must
    // capture by value: a thread given up on may run it to its end later.
    Outcome run(const std::function<nlohmann::json(dvrspace::IDVR &)> &work,
                nlohmann::json *result);
    // Why run() did not finish, for people.
    static std::string describe(Outcome outcome);

private:
    void connectLoop();
    android::sp<dvrspace::IDVR> service();

    const std::string mServiceName;
    EventLog &mEvents;
    std::mutex mLock;
    std::condition_variable mStopping;
    bool mStop = false;
    android::sp<dvrspace::IDVR> mService;
    // Shared with the threads of requests, which may outlive the link.
    std::shared_ptr<std::atomic<int>> mStuckCalls = std::make_shared<std::atomic<int>>(0);
    std::thread mConnector;
};

}  // namespace dvrweb

#endif  // DVR_WEB_SERVICE_LINK_H
