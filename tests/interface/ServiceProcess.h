// Forks a process that publishes a RecordingDVR and serves it until this
// object goes away (or this process dies); the test process stays the client.
// Each instance uses its own binder directory, so tests may run in parallel.
// One per test process, created before the process uses binder: the fork must
// not copy a running thread pool (a second instance fails the test at once).
#ifndef DVR_TEST_INTERFACE_SERVICE_PROCESS_H
#define DVR_TEST_INTERFACE_SERVICE_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "RecordingDVR.h"
#include "TempDir.h"

namespace dvrtest {

class ServiceProcess {
public:
    // The name the service is published under.
    static constexpr const char *kServiceName = "dvr_interface_test";

    explicit ServiceProcess(const RecordingDVR::Plan &plan);
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess &) = delete;
    ServiceProcess &operator=(const ServiceProcess &) = delete;

    // The service as a client sees it (a BpDVR); null if it did not come up.
    // Starts this process's thread pool, so callbacks can arrive.
    android::sp<dvrspace::IDVR> connect();
    // Transcript lines the service wrote since the last call.
    std::vector<std::string> newTranscriptLines();
    // Waits until the transcript holds count new lines (or 20 s passed) and
    // returns the new lines.
    std::vector<std::string> waitForTranscriptLines(size_t count);
    // Kills the service process (SIGKILL) and reaps it.
    void stop();

private:
    TempDir mDir;
    std::string mTranscriptPath;
    size_t mTranscriptRead = 0;
    pid_t mPid = -1;
};

}  // namespace dvrtest

#endif  // DVR_TEST_INTERFACE_SERVICE_PROCESS_H
