// Everything a recorder test case needs around the recorder: its own runtime
// configuration image, vendor-data file, service-state directory and default
// storage path under a fresh temporary directory, and the simulated devices at
// fast pacing. Each test case is its own process, so the process-wide state of
// the configuration reader and the recorders starts afresh.
#ifndef DVR_TEST_RECORDER_TEST_ENV_H
#define DVR_TEST_RECORDER_TEST_ENV_H

#include <map>
#include <string>

#include "DVRSimConfig.h"
#include "LogCapture.h"
#include "TempDir.h"

namespace dvrtest {

// The test runs inside the temporary directory and names the paths a
// recorder builds file names from relative to it: the characters of a file
// name's directory take part in pattern naming, so they must not be random.
class RecorderTestEnv {
public:
    RecorderTestEnv();
    ~RecorderTestEnv();
    RecorderTestEnv(const RecorderTestEnv &) = delete;
    RecorderTestEnv &operator=(const RecorderTestEnv &) = delete;

    // The factory defaults shipped with the service, with DVR_DEFAULT_PATH
    // pointing into this environment.
    static std::string shippedConfig(const std::string &defaultPath);
    // Installs runtime.cfg text (a header line is put in front) as the memory
    // image and command line the reader finds.
    void installRuntimeConfig(const std::string &lines);
    // Installs the shipped defaults with some values replaced (an empty text
    // leaves the key with an empty value).
    void installShippedConfigWith(const std::map<std::string, std::string> &values);
    // A command line without a configuration block: every lookup fails.
    void removeRuntimeConfig();

    const TempDir &dir() const { return mDir; }
    std::string storePath() const { return mDir.file("vendor_data"); }
    std::string serviceDir() const { return mDir.file("svc"); }
    // Relative to the working directory, the temporary directory.
    std::string defaultPath() const { return "default"; }

private:
    TempDir mDir;
    std::string mPreviousDir;
};

// Recorder and service lines begin "[function:line] "; the line number is the
// one part a test does not pin down. Counts lines of tag and priority whose
// message is exactly "[function:<digits>] " + rest.
size_t countLogged(const LogCapture &capture, int priority, const std::string &tag,
                   const std::string &function, const std::string &rest);

// A simulated 320x240 camera of that id: small frames keep a service with
// several cameras light.
dvrspace::DVRSimCameraConfig smallSimCamera(int id);

// Reads position..position+length-1 of the store as text (NULs cut off).
std::string readStoreText(int position, int length);

}  // namespace dvrtest

#endif  // DVR_TEST_RECORDER_TEST_ENV_H
