// A test client's callback object: records every call as a text line and
// answers the two queries with the texts it was given. Lives in the client
// (test) process; its methods run on that process's binder threads.
#ifndef DVR_TEST_INTERFACE_RECORDING_CALLBACK_H
#define DVR_TEST_INTERFACE_RECORDING_CALLBACK_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "DVRCallbackAdapter.h"

namespace dvrtest {

class RecordingCallback : public dvrspace::DVRCallbackAdapter {
public:
    RecordingCallback(std::string stamp, std::string fileName);

    // Waits until count lines were recorded (or 20 s passed) and returns all.
    std::vector<std::string> waitForCalls(size_t count);

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;
    // NULL buffer: -2. Otherwise the stamp text, cut to the buffer, and 0.
    int getStampString(int cbkId, int index, char *buffer) override;
    // NULL buffer: -2. Otherwise the file name, cut to length, and 0.
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;

private:
    void add(const std::string &call);

    const std::string mStamp;
    const std::string mFileName;
    std::mutex mLock;
    std::condition_variable mAdded;
    std::vector<std::string> mCalls;
};

}  // namespace dvrtest

#endif  // DVR_TEST_INTERFACE_RECORDING_CALLBACK_H
