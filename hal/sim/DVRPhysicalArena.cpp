#include "DVRPhysicalArena.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace dvrspace {

namespace {

constexpr char kMagic[8] = {'D', 'V', 'R', 'A', 'R', 'E', 'N', 'A'};
constexpr uint32_t kVersion = 1;

struct ArenaHeader {
    char magic[8];
    uint32_t version;
    uint32_t base;
    uint64_t size;
};

constexpr char kDefaultPrefix[] = "dvr-hal-arena-";

size_t roundUpToPage(size_t size) {
    return (size + DVRPhysicalArena::kPageSize - 1) / DVRPhysicalArena::kPageSize *
           DVRPhysicalArena::kPageSize;
}

// The default-named arenas in directory with the process id in their names.
std::vector<std::pair<std::string, pid_t>> defaultNamedArenas(const std::string &directory) {
    std::vector<std::pair<std::string, pid_t>> arenas;
    DIR *listing = opendir(directory.c_str());
    if (listing == nullptr) {
        return arenas;
    }
    const size_t prefixLength = std::strlen(kDefaultPrefix);
    while (const dirent *entry = readdir(listing)) {
        if (std::strncmp(entry->d_name, kDefaultPrefix, prefixLength) != 0) {
            continue;
        }
        char *end = nullptr;
        const long pid = std::strtol(entry->d_name + prefixLength, &end, 10);
        if (pid > 0 && *end == '\0') {
            arenas.emplace_back(entry->d_name, static_cast<pid_t>(pid));
        }
    }
    closedir(listing);
    return arenas;
}

std::string describeErrno(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + std::strerror(errno);
}

}  // namespace

std::unique_ptr<DVRPhysicalArena> DVRPhysicalArena::create(const std::string &path, size_t size,
                                                           uint32_t base, std::string *error) {
    size = roundUpToPage(size);
    if (size <= kPageSize || base % kPageSize != 0 ||
        static_cast<uint64_t>(base) + size > UINT64_C(0x100000000)) {
        *error = "arena of " + std::to_string(size) + " bytes at " + std::to_string(base) +
                 " does not fit 32-bit physical addresses";
        return nullptr;
    }
    unlink(path.c_str());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        *error = describeErrno("cannot create", path);
        return nullptr;
    }
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        *error = describeErrno("cannot size", path);
        close(fd);
        unlink(path.c_str());
        return nullptr;
    }
    void *map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) {
        *error = describeErrno("cannot map", path);
        unlink(path.c_str());
        return nullptr;
    }
    ArenaHeader header{};
    std::memcpy(header.magic, kMagic, sizeof(kMagic));
    header.version = kVersion;
    header.base = base;
    header.size = size;
    std::memcpy(map, &header, sizeof(header));
    return std::unique_ptr<DVRPhysicalArena>(
        new DVRPhysicalArena(path, static_cast<uint8_t *>(map), size, base, true));
}

std::unique_ptr<DVRPhysicalArena> DVRPhysicalArena::attach(const std::string &path,
                                                           std::string *error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = describeErrno("cannot open", path);
        return nullptr;
    }
    ArenaHeader header{};
    struct stat info {};
    if (fstat(fd, &info) != 0 || pread(fd, &header, sizeof(header), 0) != sizeof(header) ||
        std::memcmp(header.magic, kMagic, sizeof(kMagic)) != 0 || header.version != kVersion ||
        header.size != static_cast<uint64_t>(info.st_size) || header.size <= kPageSize ||
        static_cast<uint64_t>(header.base) + header.size > UINT64_C(0x100000000)) {
        *error = path + " is not a physical memory arena";
        close(fd);
        return nullptr;
    }
    void *map = mmap(nullptr, header.size, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) {
        *error = describeErrno("cannot map", path);
        return nullptr;
    }
    return std::unique_ptr<DVRPhysicalArena>(new DVRPhysicalArena(
        path, static_cast<uint8_t *>(map), static_cast<size_t>(header.size), header.base, false));
}

std::string DVRPhysicalArena::defaultDirectory() {
    struct stat info {};
    if (stat("/dev/shm", &info) == 0 && S_ISDIR(info.st_mode)) {
        return "/dev/shm";
    }
    const char *tmp = getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

std::string DVRPhysicalArena::defaultPath() {
    return defaultDirectory() + "/" + kDefaultPrefix + std::to_string(getpid());
}

void DVRPhysicalArena::removeStale(const std::string &directory) {
    for (const auto &[name, pid] : defaultNamedArenas(directory)) {
        if (kill(pid, 0) != 0 && errno == ESRCH) {
            unlink((directory + "/" + name).c_str());
        }
    }
}

std::vector<std::string> DVRPhysicalArena::findLive(const std::string &directory) {
    std::vector<std::string> paths;
    for (const auto &[name, pid] : defaultNamedArenas(directory)) {
        // EPERM: the process runs under another user.
        if (kill(pid, 0) == 0 || errno == EPERM) {
            paths.push_back(directory + "/" + name);
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

DVRPhysicalArena::DVRPhysicalArena(std::string path, uint8_t *map, size_t size, uint32_t base,
                                   bool owner)
    : mPath(std::move(path)), mMap(map), mSize(size), mBase(base), mOwner(owner) {}

DVRPhysicalArena::~DVRPhysicalArena() {
    munmap(mMap, mSize);
    if (mOwner) {
        unlink(mPath.c_str());
    }
}

bool DVRPhysicalArena::allocate(size_t size, Buffer *buffer) {
    if (!mOwner || size == 0) {
        return false;
    }
    size = roundUpToPage(size);
    std::lock_guard<std::mutex> lock(mLock);
    // First fit; allocations are few and long-lived (frame rings).
    size_t candidate = kPageSize;
    for (const auto &[offset, length] : mAllocations) {
        if (offset - candidate >= size) {
            break;
        }
        candidate = offset + length;
    }
    if (candidate + size > mSize) {
        return false;
    }
    mAllocations.emplace(candidate, size);
    std::memset(mMap + candidate, 0, size);
    buffer->va = mMap + candidate;
    buffer->pa = mBase + static_cast<uint32_t>(candidate);
    buffer->size = size;
    return true;
}

void DVRPhysicalArena::release(uint32_t pa) {
    std::lock_guard<std::mutex> lock(mLock);
    mAllocations.erase(static_cast<size_t>(pa - mBase));
}

void *DVRPhysicalArena::translate(uint32_t pa, size_t length) const {
    if (pa < mBase) {
        return nullptr;
    }
    const size_t offset = pa - mBase;
    if (offset < kPageSize || offset >= mSize || length > mSize - offset) {
        return nullptr;
    }
    if (!mOwner) {
        return mMap + offset;
    }
    std::lock_guard<std::mutex> lock(mLock);
    auto next = mAllocations.upper_bound(offset);
    if (next == mAllocations.begin()) {
        return nullptr;
    }
    const auto &[start, size] = *std::prev(next);
    if (offset - start + length > size) {
        return nullptr;
    }
    return mMap + offset;
}

}  // namespace dvrspace
