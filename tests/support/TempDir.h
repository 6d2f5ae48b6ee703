// A fresh directory under $TMPDIR (or /tmp), removed with its contents when the
// instance goes away.
#ifndef DVR_TEST_TEMP_DIR_H
#define DVR_TEST_TEMP_DIR_H

#include <string>

namespace dvrtest {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return mPath; }
    // path() + "/" + name
    std::string file(const std::string &name) const;
    // Writes data to path() + "/" + name and returns that path.
    std::string write(const std::string &name, const std::string &data) const;

private:
    std::string mPath;
};

}  // namespace dvrtest

#endif  // DVR_TEST_TEMP_DIR_H
