// Reads whole lines that another process writes into a pipe, with a time
// limit, so that a test can follow what a forked helper reports. Does not own
// the descriptor. One reading thread.
#ifndef DVR_TEST_LINE_READER_H
#define DVR_TEST_LINE_READER_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace dvrtest {

class LineReader {
public:
    explicit LineReader(int fd = -1) : mFd(fd) {}

    // The next count lines; fewer when timeout passed or the writer closed.
    std::vector<std::string> read(size_t count,
                                  std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // Lines until done(the lines of this call) holds; as read otherwise.
    std::vector<std::string> readUntil(
        const std::function<bool(const std::vector<std::string> &)> &done,
        std::chrono::milliseconds timeout = std::chrono::seconds(20));

private:
    int mFd;
    std::string mPending;  // read, but not a whole line yet
};

}  // namespace dvrtest

#endif  // DVR_TEST_LINE_READER_H
