// `dvr-keeper run`: follows the recording service as a client (record
// notifications), keeps the catalog and makes room in the storage
// directories, and reconnects whenever the service comes back after dying.
// run() is called once, on the main thread, with SIGINT and SIGTERM blocked
// in every thread (the daemon waits for them on a thread of its own).
#ifndef DVR_KEEPER_KEEPER_DAEMON_H
#define DVR_KEEPER_KEEPER_DAEMON_H

#include <cstdint>
#include <map>
#include <vector>

#include "IDVR.h"
#include "KeeperConfig.h"
#include "KeeperEventQueue.h"

namespace dvrkeeper {

class Catalog;
class StorageKeeper;

class KeeperDaemon {
public:
    explicit KeeperDaemon(KeeperConfig config) : mConfig(std::move(config)) {}

    // Returns the exit status: 0 after SIGINT or SIGTERM, 1 when the catalog
    // cannot be opened.
    int run();

private:
    // Waits for the service and subscribes; null when a stop came first.
    android::sp<dvrspace::IDVR> connect(StorageKeeper &keeper);
    // Handles events until the service dies (false) or a stop (true).
    bool follow(const android::sp<dvrspace::IDVR> &service, StorageKeeper &keeper);
    void disconnect(const android::sp<dvrspace::IDVR> &service);
    // The bit rate and file length of every channel, for the policy.
    void readChannels(const android::sp<dvrspace::IDVR> &service, StorageKeeper &keeper);
    void readChannel(const android::sp<dvrspace::IDVR> &service, StorageKeeper &keeper,
                     int encoderId);
    void housekeeping(StorageKeeper &keeper);

    const KeeperConfig mConfig;
    KeeperEventQueue mQueue;
    // Held here: the binder keeps only a weak reference to a recipient.
    android::sp<android::IBinder::DeathRecipient> mDeathRecipient;
    android::sp<dvrspace::IDVRCallback> mCallback;
    std::vector<int> mEncoders;            // of the service followed
    std::map<int, int64_t> mLastFinishMs;  // per channel
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_DAEMON_H
