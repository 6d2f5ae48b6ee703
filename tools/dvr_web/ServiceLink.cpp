#include "ServiceLink.h"

#include "ConsoleCallback.h"
#include "DVRClient.h"

namespace dvrweb {

namespace {

constexpr int kConnectTimeoutMs = 1000;
constexpr auto kAlivePoll = std::chrono::milliseconds(500);

// What a request's thread and its waiter share; the thread may outlive the
// waiter.
struct CallState {
    std::mutex lock;
    std::condition_variable finished;
    bool done = false;
    nlohmann::json answer;
};

}  // namespace

ServiceLink::ServiceLink(std::string serviceName, EventLog &events)
    : mServiceName(std::move(serviceName)), mEvents(events) {}

ServiceLink::~ServiceLink() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStop = true;
    }
    mStopping.notify_all();
    if (mConnector.joinable()) {
        mConnector.join();
    }
}

void ServiceLink::start() {
    mConnector = std::thread([this] { connectLoop(); });
}

void ServiceLink::connectLoop() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStop) {
        lock.unlock();
        auto client = std::make_unique<dvrspace::DVRClient>(mServiceName);
        const bool up =
            client->connect(kConnectTimeoutMs) && client->listen(new ConsoleCallback(mEvents)) == 0;
        lock.lock();
        if (!up) {
            mStopping.wait_for(lock, kAlivePoll, [this] { return mStop; });
            continue;
        }
        mService = client->service();
        while (!mStop && client->serviceAlive()) {
            mStopping.wait_for(lock, kAlivePoll, [this] { return mStop; });
        }
        mService.clear();
        lock.unlock();
        // Detaches from a service that still runs (at the console's stop).
        client.reset();
        lock.lock();
    }
}

android::sp<dvrspace::IDVR> ServiceLink::service() {
    std::lock_guard<std::mutex> guard(mLock);
    return mService;
}

bool ServiceLink::connected() {
    return service() != nullptr;
}

ServiceLink::Outcome ServiceLink::run(const std::function<nlohmann::json(dvrspace::IDVR &)> &work,
                                      nlohmann::json *result) {
    const android::sp<dvrspace::IDVR> dvr = service();
    if (dvr == nullptr) {
        return Outcome::kNoService;
    }
    if (mStuckCalls->load() >= kMaxStuckCalls) {
        return Outcome::kTooManyStuck;
    }
    auto state = std::make_shared<CallState>();
    ++*mStuckCalls;
    std::thread([state, dvr, work, stuck = mStuckCalls] {
        nlohmann::json answer = work(*dvr);
        --*stuck;
        std::lock_guard<std::mutex> guard(state->lock);
        state->answer = std::move(answer);
        state->done = true;
        state->finished.notify_all();
    }).detach();
    std::unique_lock<std::mutex> lock(state->lock);
    if (!state->finished.wait_for(lock, kCallTimeout, [&] { return state->done; })) {
        return Outcome::kTimedOut;
    }
    *result = std::move(state->answer);
    return Outcome::kDone;
}

std::string ServiceLink::describe(Outcome outcome) {
    switch (outcome) {
        case Outcome::kDone:
            return "done";
        case Outcome::kNoService:
            return "the recording service is not running (the console waits for it)";
        case Outcome::kTimedOut:
            return "the recording service did not answer within 5 s (a wedged channel?)";
        case Outcome::kTooManyStuck:
            return "the recording service has not answered earlier requests; not sending more";
    }
    return "unknown";
}

}  // namespace dvrweb
