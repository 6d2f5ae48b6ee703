// The keeper's callback object in the service: queues record-start,
// record-finish and severe errors for the worker thread and returns at once
// (a client must not call the service from inside a notification). The rest
// keeps the adapter's no-op answers: the keeper never names files or stamps.
// Runs on binder pool threads.
#ifndef DVR_KEEPER_KEEPER_CALLBACK_H
#define DVR_KEEPER_KEEPER_CALLBACK_H

#include "DVRCallbackAdapter.h"
#include "KeeperEventQueue.h"

namespace dvrkeeper {

class KeeperCallback : public dvrspace::DVRCallbackAdapter {
public:
    explicit KeeperCallback(KeeperEventQueue &queue) : mQueue(queue) {}

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;

private:
    KeeperEventQueue &mQueue;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_CALLBACK_H
