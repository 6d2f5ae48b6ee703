// A first-in, first-out queue of records between any number of producers and
// one consumer thread. The queue keeps its own heap copy of every record from
// send() to receive(); callers keep their own records. T provides a default
// constructor and copyData(const T&).
#ifndef DVR_MESSAGE_QUEUE_H
#define DVR_MESSAGE_QUEUE_H

#include <android/log.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>

#include "DVRAssert.h"

namespace dvrspace {

template <typename T>
class DVRMessageQueue {
public:
    DVRMessageQueue() = default;
    // Stops the queue; it must be empty by now.
    ~DVRMessageQueue() {
        force_stop();
        DVR_ASSERT(mMsgQ.empty());
        pthread_cond_destroy(&mWakeUp);
        pthread_mutex_destroy(&mWakeUpLock);
    }
    DVRMessageQueue(const DVRMessageQueue &) = delete;
    DVRMessageQueue &operator=(const DVRMessageQueue &) = delete;

    // Queues a copy of *data and wakes the consumer. Dropped silently once the
    // queue is stopped. Any thread.
    void send(T *data) {
        if (mStopped) {
            return;
        }
        DVR_ASSERT(data != NULL);
        // Raw storage, so that flush() can release a record with free() alone.
        void *storage = std::malloc(sizeof(T));
        if (storage == nullptr) {
            throw std::bad_alloc();
        }
        T *record = new (storage) T();
        try {
            record->copyData(*data);
        } catch (...) {
            record->~T();
            std::free(storage);
            throw;
        }
        std::lock_guard<std::mutex> queueLock(mQueueLock);
        mMsgQ.push_back(record);
        pthread_mutex_lock(&mWakeUpLock);
        pthread_cond_signal(&mWakeUp);
        pthread_mutex_unlock(&mWakeUpLock);
    }

    // Takes the oldest record into *out: 0, or -1 when the queue is empty.
    // Never blocks.
    int receive(T *out) {
        std::lock_guard<std::mutex> queueLock(mQueueLock);
        if (mMsgQ.empty()) {
            return -1;
        }
        T *record = mMsgQ.front();
        mMsgQ.pop_front();
        out->copyData(*record);
        record->~T();
        std::free(record);
        return 0;
    }

    // Like receive(), but waits once for a record when the queue is empty: -1
    // when stopped, or when woken with nothing to take. Consumer thread only.
    int receive_and_wait(T *out) {
        if (receive(out) == 0) {
            return 0;
        }
        pthread_mutex_lock(&mWakeUpLock);
        if (mStopped) {
            pthread_mutex_unlock(&mWakeUpLock);
            return -1;
        }
        pthread_cond_wait(&mWakeUp, &mWakeUpLock);
        pthread_mutex_unlock(&mWakeUpLock);
        if (mStopped) {
            return -1;
        }
        if (receive(out) == 0) {
            return 0;
        }
        // A spurious wake-up or a record taken by a racing receive().
        __android_log_print(ANDROID_LOG_ERROR, "DVRCbkThread",
                            "[%s:%d] Fatal! Get condition signal but msg Q is empty\n",
                            "receive_and_wait", __LINE__);
        return -1;
    }

    // Stops the queue for good and wakes a waiting consumer. Any thread.
    void force_stop() {
        mStopped = true;
        pthread_mutex_lock(&mWakeUpLock);
        pthread_cond_signal(&mWakeUp);
        pthread_mutex_unlock(&mWakeUpLock);
    }

    // Drops every pending record, releasing only its memory: only ever called
    // on an empty queue, right after construction.
    void flush() {
        std::lock_guard<std::mutex> queueLock(mQueueLock);
        for (T *record : mMsgQ) {
            std::free(record);
        }
        mMsgQ.clear();
    }

    // True once nothing is pending. Any thread.
    bool empty() {
        std::lock_guard<std::mutex> queueLock(mQueueLock);
        return mMsgQ.empty();
    }

private:
    std::deque<T *> mMsgQ;
    std::mutex mQueueLock;
    // Set once and never cleared; atomic only so the unlocked reads are defined.
    std::atomic<bool> mStopped{false};
    pthread_cond_t mWakeUp = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t mWakeUpLock = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace dvrspace

#endif  // DVR_MESSAGE_QUEUE_H
