#include "SvcStateDir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "svc_mon.h"

namespace {

// Files longer than this are not state files; reading stops there.
constexpr size_t kFileLimit = 256;

bool isStateChar(char c) {
    return c > ' ' && c < 0x7f;
}

bool failWith(std::string *error, const std::string &text) {
    if (error != nullptr) {
        *error = text;
    }
    return false;
}

std::string errnoText(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + strerror(errno);
}

}  // namespace

SvcStateDir SvcStateDir::fromEnvironment() {
    const char *path = getenv(kPathVariable);
    return SvcStateDir(path != nullptr && path[0] != '\0' ? path : kDefaultPath);
}

SvcStateDir::SvcStateDir(std::string path) : mPath(std::move(path)) {}

bool SvcStateDir::isValidName(const std::string &name) {
    if (name.empty() || name.size() > 255 || name[0] == '.') {
        return false;
    }
    for (char c : name) {
        if (c == '/' || static_cast<unsigned char>(c) < ' ' || c == 0x7f) {
            return false;
        }
    }
    return true;
}

bool SvcStateDir::isValidState(const std::string &state) {
    if (state.empty() || state.size() >= SVC_MON_STATE_MAX) {
        return false;
    }
    for (char c : state) {
        if (!isStateChar(c)) {
            return false;
        }
    }
    return true;
}

bool SvcStateDir::create(std::string *error) const {
    std::error_code failed;
    std::filesystem::create_directories(mPath, failed);
    if (failed) {
        return failWith(error, "cannot create " + mPath + ": " + failed.message());
    }
    if (!std::filesystem::is_directory(mPath, failed)) {
        return failWith(error, "not a directory: " + mPath);
    }
    return true;
}

bool SvcStateDir::read(const std::string &service, std::string *state, std::string *error) const {
    if (!isValidName(service)) {
        return failWith(error, "bad service name '" + service + "'");
    }
    bool exists = false;
    if (!readFile(service, &exists, state, error)) {
        return false;
    }
    return exists || readDefault(state, error);
}

bool SvcStateDir::write(const std::string &service, const std::string &state,
                        std::string *error) const {
    if (!isValidName(service)) {
        return failWith(error, "bad service name '" + service + "'");
    }
    return writeFile(service, state, error);
}

bool SvcStateDir::remove(const std::string &service, std::string *error) const {
    if (!isValidName(service)) {
        return failWith(error, "bad service name '" + service + "'");
    }
    return removeFile(service, error);
}

bool SvcStateDir::readDefault(std::string *state, std::string *error) const {
    bool exists = false;
    if (!readFile(kDefaultStateFile, &exists, state, error)) {
        return false;
    }
    if (!exists) {
        *state = kImplicitState;
    }
    return true;
}

bool SvcStateDir::writeDefault(const std::string &state, std::string *error) const {
    return writeFile(kDefaultStateFile, state, error);
}

bool SvcStateDir::removeDefault(std::string *error) const {
    return removeFile(kDefaultStateFile, error);
}

std::map<std::string, std::string> SvcStateDir::list(std::vector<std::string> *problems) const {
    std::map<std::string, std::string> states;
    DIR *dir = opendir(mPath.c_str());
    if (dir == nullptr) {
        // A directory nobody has written yet holds no states.
        if (errno != ENOENT && problems != nullptr) {
            problems->push_back(errnoText("cannot list", mPath));
        }
        return states;
    }
    while (const struct dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (!isValidName(name)) {
            continue;
        }
        bool exists = false;
        std::string state;
        std::string error;
        if (!readFile(name, &exists, &state, &error)) {
            if (problems != nullptr) {
                problems->push_back(error);
            }
        } else if (exists) {
            states[name] = state;
        }
    }
    closedir(dir);
    return states;
}

bool SvcStateDir::readFile(const std::string &name, bool *exists, std::string *state,
                           std::string *error) const {
    const std::string path = fileOf(name);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ENOENT) {
            *exists = false;
            return true;
        }
        return failWith(error, errnoText("cannot open", path));
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        close(fd);
        return failWith(error, "not a regular file: " + path);
    }
    char buffer[kFileLimit + 1];
    size_t length = 0;
    ssize_t got = 0;
    while (length < sizeof(buffer) &&
           (got = ::read(fd, buffer + length, sizeof(buffer) - length)) > 0) {
        length += static_cast<size_t>(got);
    }
    const int readErrno = errno;
    close(fd);
    if (got < 0) {
        errno = readErrno;
        return failWith(error, errnoText("cannot read", path));
    }
    while (length > 0 && (buffer[length - 1] == '\n' || buffer[length - 1] == '\r' ||
                          buffer[length - 1] == ' ' || buffer[length - 1] == '\t')) {
        --length;
    }
    std::string text(buffer, length);
    if (!text.empty() && !isValidState(text)) {
        return failWith(error, "malformed state in " + path +
                                   " (1 to 31 printable characters without blanks expected)");
    }
    *exists = true;
    *state = text;
    return true;
}

bool SvcStateDir::writeFile(const std::string &name, const std::string &state,
                            std::string *error) const {
    if (!isValidState(state)) {
        return failWith(error, "bad state '" + state +
                                   "' (1 to 31 printable characters without blanks expected)");
    }
    if (!create(error)) {
        return false;
    }
    // A hidden name, so the monitor ignores the half-written file; unique per
    // thread, so concurrent writers never share one.
    const std::string temporary =
        fileOf(".tmp." + std::to_string(getpid()) + "." + std::to_string(gettid()));
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return failWith(error, errnoText("cannot create", temporary));
    }
    const std::string text = state + "\n";
    bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int writeErrno = errno;
    if (close(fd) != 0) {
        written = false;
    } else if (!written) {
        errno = writeErrno;
    }
    if (!written) {
        const std::string text = errnoText("cannot write", temporary);
        unlink(temporary.c_str());
        return failWith(error, text);
    }
    if (rename(temporary.c_str(), fileOf(name).c_str()) != 0) {
        const std::string text = errnoText("cannot replace", fileOf(name));
        unlink(temporary.c_str());
        return failWith(error, text);
    }
    return true;
}

bool SvcStateDir::removeFile(const std::string &name, std::string *error) const {
    if (unlink(fileOf(name).c_str()) != 0 && errno != ENOENT) {
        return failWith(error, errnoText("cannot remove", fileOf(name)));
    }
    return true;
}
