#define LOG_TAG "DVRServer"

#include "StorageTuningHook.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "DVRLog.h"

namespace dvrspace {

std::atomic<unsigned> StorageTuningHook::sCalls{0};

int StorageTuningHook::run(const char *command) {
    const char *event =
        sCalls.fetch_add(1) % 2 == 0 ? "first recording started" : "last recording stopped";
    std::string setting;
    std::string file;
    if (command == nullptr || !parse(command, &setting, &file)) {
        DVR_LOGW("Storage tuning, %s: not run, not of the form 'echo SETTING > FILE': %s\n", event,
                 command != nullptr ? command : "(null)");
        return -1;
    }
    if (access(file.c_str(), F_OK) != 0) {
        DVR_LOGD("Storage tuning, %s: '%s' skipped, no controller at %s\n", event, setting.c_str(),
                 file.c_str());
        return 0;
    }
    // What echo writes: the setting and a line feed, in one write.
    const std::string line = setting + "\n";
    const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    const bool written =
        fd >= 0 && write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!written) {
        DVR_LOGW("Storage tuning, %s: cannot write '%s' to %s: %s\n", event, setting.c_str(),
                 file.c_str(), strerror(error));
        return -1;
    }
    DVR_LOGD("Storage tuning, %s: '%s' written to %s\n", event, setting.c_str(), file.c_str());
    return 0;
}

bool StorageTuningHook::parse(const std::string &command, std::string *setting, std::string *file) {
    static const std::string kEcho = "echo ";
    static const std::string kRedirect = " > ";
    const size_t redirect = command.rfind(kRedirect);
    if (command.compare(0, kEcho.size(), kEcho) != 0 || redirect == std::string::npos ||
        redirect <= kEcho.size()) {
        return false;
    }
    *setting = command.substr(kEcho.size(), redirect - kEcho.size());
    *file = command.substr(redirect + kRedirect.size());
    return !file->empty() && file->find(' ') == std::string::npos;
}

}  // namespace dvrspace
