// A client's callback object for the end-to-end tests: keeps every
// notification and query, answers the user-stamp query with a fixed text and,
// when asked to, the next-file query with numbered names in a directory.
// Optionally writes one line per call to a file descriptor, so that a forked
// client can report to the test process.
#ifndef DVR_TEST_CLIENT_CALLBACK_H
#define DVR_TEST_CLIENT_CALLBACK_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "DVRCallbackAdapter.h"

namespace dvrtest {

class ClientCallback : public dvrspace::DVRCallbackAdapter {
public:
    struct Call {
        std::string kind;  // "start", "finish", "error", "severe", "abnormal", "stamp", "name"
        int cbkId;
        int index;
        std::string text;  // the file name of start, finish and name
    };

    explicit ClientCallback(std::string stamp, int reportFd = -1);

    // fileNameGenerator answers "<directory>/client_<index>_<n><extension>",
    // n counting from 1 per index; without this call it answers "".
    void nameFiles(const std::string &directory, const std::string &extension);
    std::vector<Call> calls();
    // Calls of kind for index, in order.
    std::vector<Call> calls(const std::string &kind, int index);
    // Waits until done(calls()) holds, at most timeout; false if it never did.
    bool waitUntil(const std::function<bool(const std::vector<Call> &)> &done,
                   std::chrono::seconds timeout);

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;
    int getStampString(int cbkId, int index, char *buffer) override;
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;

private:
    void add(Call call);

    const std::string mStamp;
    const int mReportFd;
    std::mutex mLock;
    std::condition_variable mAdded;
    std::vector<Call> mCalls;
    std::string mNameDirectory;
    std::string mNameExtension;
};

}  // namespace dvrtest

#endif  // DVR_TEST_CLIENT_CALLBACK_H
