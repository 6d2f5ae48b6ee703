#include "KeeperCallback.h"

#include "StorageKeeper.h"

namespace dvrkeeper {

int KeeperCallback::onRecordStart(int, int index, const char *fileName) {
    mQueue.push({KeeperEvent::Kind::kRecordStart, index, fileName != nullptr ? fileName : "", 0,
                 nullptr, StorageKeeper::nowMs()});
    return 0;
}

int KeeperCallback::onRecordFinish(int, int index, const char *fileName) {
    mQueue.push({KeeperEvent::Kind::kRecordFinish, index, fileName != nullptr ? fileName : "", 0,
                 nullptr, StorageKeeper::nowMs()});
    return 0;
}

int KeeperCallback::onRecordErrorSevere(int, int index, int errorCode) {
    mQueue.push({KeeperEvent::Kind::kSevereError, index, "", errorCode});
    return 0;
}

}  // namespace dvrkeeper
