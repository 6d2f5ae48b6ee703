#include "LineReader.h"

#include <poll.h>
#include <unistd.h>

namespace dvrtest {

namespace {

constexpr int kPollMs = 100;

}  // namespace

std::vector<std::string> LineReader::read(size_t count, std::chrono::milliseconds timeout) {
    return readUntil(
        [count](const std::vector<std::string> &lines) { return lines.size() >= count; }, timeout);
}

std::vector<std::string> LineReader::readUntil(
    const std::function<bool(const std::vector<std::string> &)> &done,
    std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::vector<std::string> lines;
    while (!done(lines) && std::chrono::steady_clock::now() < deadline) {
        const size_t newline = mPending.find('\n');
        if (newline != std::string::npos) {
            lines.push_back(mPending.substr(0, newline));
            mPending.erase(0, newline + 1);
            continue;
        }
        pollfd readable{mFd, POLLIN, 0};
        if (poll(&readable, 1, kPollMs) == 1) {
            char buffer[512];
            const ssize_t got = ::read(mFd, buffer, sizeof(buffer));
            if (got <= 0) {
                break;
            }
            mPending.append(buffer, static_cast<size_t>(got));
        }
    }
    return lines;
}

}  // namespace dvrtest
