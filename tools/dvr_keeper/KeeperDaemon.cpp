#include "KeeperDaemon.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "Catalog.h"
#include "KeeperCallback.h"
#include "KeeperLog.h"
#include "StopSignals.h"
#include "StorageKeeper.h"

using android::sp;
using dvrspace::IDVR;

namespace dvrkeeper {

namespace {

constexpr int kLookupMs = 1000;
constexpr int kRecordCbkId = 0;
constexpr int kErrorCbkId = 1;
// A start this soon after the channel's finish is a roll-over to its next file.
constexpr int64_t kRollOverMs = 1000;

class ServiceDeath : public android::IBinder::DeathRecipient {
public:
    explicit ServiceDeath(KeeperEventQueue &queue) : mQueue(queue) {}
    void binderDied(const android::wp<android::IBinder> &who) override {
        mQueue.push({KeeperEvent::Kind::kServiceDied, -1, "", 0, who.unsafe_get()});
    }

private:
    KeeperEventQueue &mQueue;
};

}  // namespace

int KeeperDaemon::run() {
    std::unique_ptr<Catalog> catalog;
    try {
        std::string movedTo;
        catalog = Catalog::open(mConfig.database, Catalog::Damaged::kMoveAside, &movedTo);
        if (!movedTo.empty()) {
            KEEPER_LOGE(
                "Catalog %s was corrupt; moved aside to %s, rebuilding it from the storage "
                "directories\n",
                mConfig.database.c_str(), movedTo.c_str());
        }
    } catch (const CatalogError &error) {
        KEEPER_LOGE("Cannot open the catalog: %s\n", error.what());
        return 1;
    }
    StorageKeeper keeper(*catalog, mConfig);
    housekeeping(keeper);

    // Signals arrive here only: every thread has them blocked.
    std::thread([this] {
        const sigset_t signals = dvrtools::stopSignals();
        int signal = 0;
        sigwait(&signals, &signal);
        KEEPER_LOGI("%s: stopping\n", strsignal(signal));
        mQueue.push({KeeperEvent::Kind::kStop, -1, "", 0});
    }).detach();
    mDeathRecipient = new ServiceDeath(mQueue);
    mCallback = new KeeperCallback(mQueue);
    android::ProcessState::self()->startThreadPool();

    for (;;) {
        const sp<IDVR> service = connect(keeper);
        if (service == nullptr || follow(service, keeper)) {
            if (service != nullptr) {
                disconnect(service);
            }
            KEEPER_LOGI("Stopped\n");
            return 0;
        }
    }
}

sp<IDVR> KeeperDaemon::connect(StorageKeeper &keeper) {
    const android::String16 name(mConfig.service.c_str());
    for (int waited = 0;; waited += kLookupMs) {
        if (mQueue.stopPending()) {
            return nullptr;
        }
        const sp<IDVR> service = android::interface_cast<IDVR>(
            android::defaultServiceManager()->waitForService(name, kLookupMs));
        if (service == nullptr) {
            if (waited % 60000 == 0) {
                KEEPER_LOGW("Waiting for the service '%s'\n", mConfig.service.c_str());
            }
            continue;
        }
        const sp<android::IBinder> binder = android::IInterface::asBinder(service);
        if (binder->linkToDeath(mDeathRecipient) != android::OK) {
            // Found the socket of a service that has died since.
            std::this_thread::sleep_for(std::chrono::milliseconds(kLookupMs));
            continue;
        }
        const int pid = getpid();
        const int established = service->establishCallback(pid, mCallback);
        // A subscription of an earlier attempt may be there still: the
        // manager keeps a client's subscriptions when it attaches again.
        service->unregisterCallback(pid, kRecordCbkId, dvrspace::DVR_CBK_OBJ_RECORD);
        service->unregisterCallback(pid, kErrorCbkId, dvrspace::DVR_CBK_OBJ_ERROR);
        const int record =
            service->registerCallback(pid, kRecordCbkId, dvrspace::DVR_CBK_OBJ_RECORD);
        const int error = service->registerCallback(pid, kErrorCbkId, dvrspace::DVR_CBK_OBJ_ERROR);
        if (established != 0 || record != 0 || error != 0) {
            KEEPER_LOGE("Cannot subscribe to the service '%s' (%d, %d, %d); trying again\n",
                        mConfig.service.c_str(), established, record, error);
            std::this_thread::sleep_for(std::chrono::milliseconds(kLookupMs));
            continue;
        }
        const int recorders = service->getRecorderCount();
        mEncoders.clear();
        for (int index = 0; index < recorders; ++index) {
            int encoderId = -1;
            if (service->getEncoder(index, &encoderId) == 0) {
                mEncoders.push_back(encoderId);
            }
        }
        readChannels(service, keeper);
        KEEPER_LOGI("Following the service '%s' (%d channels)\n", mConfig.service.c_str(),
                    recorders);
        // Whatever was written while the keeper was not listening.
        housekeeping(keeper);
        return service;
    }
}

bool KeeperDaemon::follow(const sp<IDVR> &service, StorageKeeper &keeper) {
    const std::chrono::milliseconds interval(int64_t{mConfig.intervalSeconds} * 1000);
    auto nextHousekeeping = std::chrono::steady_clock::now() + interval;
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        // Notifications first: the figures of finished files wait.
        const std::optional<KeeperEvent> event = mQueue.pop(
            keeper.hasUnprobed()
                ? std::chrono::milliseconds(0)
                : std::chrono::duration_cast<std::chrono::milliseconds>(nextHousekeeping - now));
        try {
            if (!event && keeper.hasUnprobed() && now < nextHousekeeping) {
                keeper.probeOne();
                continue;
            }
            if (!event) {
                readChannels(service, keeper);
                housekeeping(keeper);
                nextHousekeeping = std::chrono::steady_clock::now() + interval;
                continue;
            }
            switch (event->kind) {
                case KeeperEvent::Kind::kRecordStart:
                    // A new recording may bring new settings; a roll-over
                    // (a start right after the channel's finish) does not,
                    // and is not slowed down by asking the service.
                    if (event->atMs - mLastFinishMs[event->encoderId] > kRollOverMs) {
                        readChannel(service, keeper, event->encoderId);
                    }
                    keeper.recordStarted(event->encoderId, event->path, event->atMs);
                    break;
                case KeeperEvent::Kind::kRecordFinish:
                    mLastFinishMs[event->encoderId] = event->atMs;
                    keeper.recordFinished(event->encoderId, event->path, event->atMs);
                    break;
                case KeeperEvent::Kind::kSevereError:
                    KEEPER_LOGW("Channel %d reported a severe error %d\n", event->encoderId,
                                event->value);
                    break;
                case KeeperEvent::Kind::kServiceDied:
                    if (event->binder != android::IInterface::asBinder(service).get() ||
                        android::IInterface::asBinder(service)->isBinderAlive()) {
                        break;  // about an earlier connection
                    }
                    KEEPER_LOGW("The service '%s' died; waiting for it to come back\n",
                                mConfig.service.c_str());
                    keeper.serviceLost();
                    return false;
                case KeeperEvent::Kind::kStop:
                    while (keeper.probeOne()) {
                    }
                    return true;
            }
        } catch (const CatalogError &error) {
            KEEPER_LOGE("Catalog error: %s\n", error.what());
        }
    }
}

void KeeperDaemon::disconnect(const sp<IDVR> &service) {
    const int pid = getpid();
    service->unregisterCallback(pid, kRecordCbkId, dvrspace::DVR_CBK_OBJ_RECORD);
    service->unregisterCallback(pid, kErrorCbkId, dvrspace::DVR_CBK_OBJ_ERROR);
    service->destroyCallback(pid);
}

void KeeperDaemon::readChannels(const sp<IDVR> &service, StorageKeeper &keeper) {
    for (const int encoderId : mEncoders) {
        readChannel(service, keeper, encoderId);
    }
}

void KeeperDaemon::readChannel(const sp<IDVR> &service, StorageKeeper &keeper, int encoderId) {
    StorageKeeper::ChannelSettings settings;
    settings.bitRateMbps = service->getBitRate(encoderId);
    settings.fileLengthSeconds = service->getFileLength(encoderId);
    if (settings.bitRateMbps > 0 && settings.fileLengthSeconds > 0) {
        keeper.setChannel(encoderId, settings);
    }
}

void KeeperDaemon::housekeeping(StorageKeeper &keeper) {
    try {
        keeper.reconcile();
        keeper.enforce();
    } catch (const CatalogError &error) {
        KEEPER_LOGE("Catalog error: %s\n", error.what());
    }
}

}  // namespace dvrkeeper
