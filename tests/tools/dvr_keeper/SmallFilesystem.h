// A tmpfs of a given size mounted at a directory of the test's own, so that a
// test can fill a disk (or meet a read-only one) without touching the
// machine's. Unmounted when the instance goes away. Needs CAP_SYS_ADMIN:
// mounted() is false otherwise and why() says why, for GTEST_SKIP.
#ifndef DVR_TEST_SMALL_FILESYSTEM_H
#define DVR_TEST_SMALL_FILESYSTEM_H

#include <string>

namespace dvrtest {

class SmallFilesystem {
public:
    // options: tmpfs mount options besides the size, such as "ro".
    SmallFilesystem(const std::string &directory, int megabytes, const std::string &options = "");
    ~SmallFilesystem();
    SmallFilesystem(const SmallFilesystem &) = delete;
    SmallFilesystem &operator=(const SmallFilesystem &) = delete;

    bool mounted() const { return mMounted; }
    const std::string &why() const { return mWhy; }
    const std::string &path() const { return mPath; }
    // Bytes an unprivileged writer may still use (statvfs f_bavail).
    long long freeBytes() const;

private:
    std::string mPath;
    bool mMounted = false;
    std::string mWhy;
};

}  // namespace dvrtest

#endif  // DVR_TEST_SMALL_FILESYSTEM_H
