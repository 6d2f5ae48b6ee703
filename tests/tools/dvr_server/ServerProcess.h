// The built dvr_server in a process of its own, working in a fresh temporary
// directory: its own binder, state and message directories, vendor-data file,
// the shipped runtime.cfg with DVR_DEFAULT_PATH pointing into the directory,
// and two small real-time simulated cameras (320x240, 10 fps) with one audio
// input. This test process is the client and uses the same binder directory.
//
// Storage paths are given relative to the server's working directory: the
// directory part of a default file name goes through the pattern generator,
// where the letters S, T and E cut it, so a random directory name must not
// appear there.
// Test cases run one per process (ctest), so process-wide binder state never
// carries over.
#ifndef DVR_TEST_SERVER_PROCESS_H
#define DVR_TEST_SERVER_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "IDVR.h"
#include "TempDir.h"

namespace dvrtest {

class ServerProcess {
public:
    static constexpr const char *kName = "dvr";
    // Device ids of the simulator configuration the server runs with.
    static constexpr int kCameraIds[2] = {10, 11};
    static constexpr int kAudioId = 20;
    static constexpr int kEncoderIds[2] = {100, 101};

    ServerProcess();
    // Kills a server that is still running (SIGKILL).
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    // Where the client asks the recorders to store their files, as the
    // server sees it.
    static constexpr const char *kStorage = "recordings";

    const TempDir &dir() const { return mDir; }
    // kStorage as this process sees it.
    std::string storageDir() const { return mDir.file(kStorage); }
    // A file name the server reported, as this process sees it.
    std::string onDisk(const std::string &serverPath) const;
    // DVR_DEFAULT_PATH of the server's runtime configuration.
    std::string defaultPath() const { return mDir.file("default"); }

    // Starts dvr_server with the standard options plus extra; its standard
    // error goes to log().
    void start(const std::vector<std::string> &extra = {});
    // Makes start() run the server through launcher, a command that runs the
    // rest of its command line (such as setpriv with its options and "--").
    void setLauncher(const std::vector<std::string> &launcher) { mLauncher = launcher; }
    // Starts this process's binder pool (callbacks arrive there) and waits
    // up to 30 s for the service; null when it did not appear.
    android::sp<dvrspace::IDVR> connect();
    // Sends signal and waits up to 60 s for the server to end; returns the
    // wait status, or -1 when it did not end (it is killed then).
    int stop(int signal);
    // Waits up to 60 s for the server to end by itself; as stop.
    int waitForExit();
    bool running() const { return mPid > 0; }
    // Everything the server wrote to its standard error so far.
    std::string log() const;
    // Waits up to 30 s until the log holds text.
    bool waitForLog(const std::string &text) const;

private:
    TempDir mDir;
    std::vector<std::string> mLauncher;
    pid_t mPid = -1;
};

// Runs a command-line invocation of dvr_server (no service expected) and
// returns its wait status; its standard error lands in *err.
int runServerCommand(const std::vector<std::string> &arguments, std::string *err);

}  // namespace dvrtest

#endif  // DVR_TEST_SERVER_PROCESS_H
