#include "VendorDataStore.h"

#define LOG_TAG "VendorData"

#include <fcntl.h>
#include <log/log.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "VendorDataRecord.h"

namespace {

constexpr const char *kPathEnv = "DVR_VENDOR_DATA";
constexpr const char *kRootPath = "/var/lib/dvr/vendor_data";
constexpr const char *kUserPath = "/dvr/vendor_data";
constexpr mode_t kFileMode = 0644;
constexpr mode_t kDirectoryMode = 0755;

// Which damaged file was last reported, so that the service reading sixteen
// values from one broken file logs it once, and again only once it changes.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified = {};

    bool operator==(const FileIdentity &other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};
std::mutex gReportedLock;
FileIdentity gReportedDamage;

bool isNewDamage(const struct stat &status) {
    FileIdentity identity{status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    std::lock_guard<std::mutex> guard(gReportedLock);
    if (identity == gReportedDamage) {
        return false;
    }
    gReportedDamage = identity;
    return true;
}

int errnoResult() {
    return errno != 0 ? -errno : -EIO;
}

std::string directoryOf(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// mkdir -p of the directory holding path; the default paths live in
// directories that a fresh machine does not have yet.
void makeParentDirectories(const std::string &path) {
    std::string directory = directoryOf(path);
    for (size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
        mkdir(directory.substr(0, slash).c_str(), kDirectoryMode);
        if (slash == std::string::npos) {
            break;
        }
    }
}

// Repeats a partial read or write, given as transfer(bytes done so far), until
// size bytes have moved; false on an error or an early end of file.
template <typename Transfer>
bool transferAll(size_t size, Transfer transfer) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = transfer(done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        done += static_cast<size_t>(count);
    }
    return true;
}

int logFailure(const std::string &path, const char *action) {
    int result = errnoResult();
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "Vendor data %s: cannot %s: %s", path.c_str(),
                        action, strerror(-result));
    return result;
}

}  // namespace

std::string VendorDataStore::configuredPath() {
    const char *configured = getenv(kPathEnv);
    if (configured != nullptr && configured[0] != '\0') {
        return configured;
    }
    if (geteuid() == 0) {
        return kRootPath;
    }
    const char *state = getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') {
        return std::string(state) + kUserPath;
    }
    const char *home = getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        return std::string(home) + "/.local/state" + kUserPath;
    }
    return "";
}

VendorDataStore::VendorDataStore(std::string path) : mPath(std::move(path)) {}

int VendorDataStore::read(int position, int length, uint8_t *out) const {
    int result = checkArguments(position, length, out);
    if (result != 0) {
        return result;
    }
    VendorDataRecord record;
    result = load(&record, Purpose::kReading);
    if (result != 0) {
        return result;
    }
    return record.read(position, length, out) ? 0 : -ENOENT;
}

int VendorDataStore::write(int position, int length, const uint8_t *bytes) const {
    int result = checkArguments(position, length, bytes);
    if (result != 0) {
        return result;
    }
    int lockFd = -1;
    result = lockForWriting(&lockFd);
    if (result != 0) {
        return result;
    }
    VendorDataRecord record;
    result = load(&record, Purpose::kWriting);
    if (result == 0 || result == -ENOENT) {
        record.write(position, length, bytes);
        result = replace(record);
    }
    close(lockFd);  // releases the lock
    return result;
}

int VendorDataStore::load(VendorDataRecord *record, Purpose purpose) const {
    int fd = open(mPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? -ENOENT : logFailure(mPath, "open");
    }
    struct stat status;
    if (fstat(fd, &status) != 0) {
        int result = logFailure(mPath, "stat");
        close(fd);
        return result;
    }
    VendorDataRecord::Image image;
    size_t size = static_cast<size_t>(status.st_size);
    bool complete = size != image.size() || transferAll(image.size(), [&](size_t done) {
                        return ::read(fd, image.data() + done, image.size() - done);
                    });
    if (!complete) {
        int result = logFailure(mPath, "read");
        close(fd);
        return result;
    }
    close(fd);
    std::string problem;
    if (!record->parse(image.data(), size, &problem) &&
        (purpose == Purpose::kWriting || isNewDamage(status))) {
        __android_log_print(
            ANDROID_LOG_ERROR, LOG_TAG, "Vendor data %s is damaged (%s); %s", mPath.c_str(),
            problem.c_str(),
            purpose == Purpose::kWriting ? "starting a new record" : "reading it as empty");
    }
    return 0;
}

int VendorDataStore::replace(const VendorDataRecord &record) const {
    VendorDataRecord::Image image;
    record.toImage(&image);
    const std::string temporary = mPath + ".tmp";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
    if (fd < 0) {
        return logFailure(temporary, "create");
    }
    const bool written = transferAll(image.size(), [&](size_t done) {
        return ::write(fd, image.data() + done, image.size() - done);
    });
    if (!written || fsync(fd) != 0) {
        int result = logFailure(temporary, "write");
        close(fd);
        unlink(temporary.c_str());
        return result;
    }
    close(fd);
    if (rename(temporary.c_str(), mPath.c_str()) != 0) {
        int result = logFailure(mPath, "replace");
        unlink(temporary.c_str());
        return result;
    }
    // The rename itself is durable only once the directory entry is on disk.
    int directoryFd = open(directoryOf(mPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directoryFd < 0 || fsync(directoryFd) != 0) {
        int result = logFailure(directoryOf(mPath), "sync directory");
        if (directoryFd >= 0) {
            close(directoryFd);
        }
        return result;
    }
    close(directoryFd);
    return 0;
}

int VendorDataStore::lockForWriting(int *lockFd) const {
    const std::string lockPath = mPath + ".lock";
    int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode);
    if (fd < 0 && errno == ENOENT) {
        makeParentDirectories(mPath);
        fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode);
    }
    if (fd < 0) {
        return logFailure(lockPath, "open");
    }
    int locked;
    do {
        locked = flock(fd, LOCK_EX);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0) {
        int result = logFailure(lockPath, "lock");
        close(fd);
        return result;
    }
    *lockFd = fd;
    return 0;
}

int VendorDataStore::checkArguments(int position, int length, const void *buffer) const {
    if (buffer == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "Vendor data: null buffer");
        return -EINVAL;
    }
    if (!VendorDataRecord::inRange(position, length)) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "Vendor data: position %d length %d is outside the record (0..%d)",
                            position, length, VendorDataRecord::kSize - 1);
        return -EINVAL;
    }
    if (mPath.empty()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "Vendor data has no file: set DVR_VENDOR_DATA or HOME");
        return -ENOENT;
    }
    return 0;
}
