// The built dvr-web in a process of its own: its standard output (where it
// prints the URL) and standard error (one line per request) go to files in
// a directory the caller gives.
#ifndef DVR_TEST_WEB_PROCESS_H
#define DVR_TEST_WEB_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace dvrtest {

class WebProcess {
public:
    explicit WebProcess(std::string directory) : mDirectory(std::move(directory)) {}
    // Kills a console that still runs (SIGKILL).
    ~WebProcess();
    WebProcess(const WebProcess &) = delete;
    WebProcess &operator=(const WebProcess &) = delete;

    // Starts `dvr-web ARGUMENTS` and waits up to 30 s for its URL; false
    // when it ended or printed none.
    bool start(const std::vector<std::string> &arguments);
    int port() const { return mPort; }
    // "http://127.0.0.1:PORT"
    std::string url() const;
    bool running();
    // Sends signal and waits up to 30 s: the wait status, or -1 (killed then).
    int stop(int signal);
    std::string output() const;
    std::string log() const;
    // How many lines of the log hold text.
    size_t countInLog(const std::string &text) const;

private:
    const std::string mDirectory;
    pid_t mPid = -1;
    int mPort = 0;
};

// Runs `dvr-web ARGUMENTS` to its end: the wait status, with its standard
// output and error.
int runWeb(const std::vector<std::string> &arguments, std::string *out, std::string *err);

}  // namespace dvrtest

#endif  // DVR_TEST_WEB_PROCESS_H
