// A recording (MPEG-TS or AVI as the service writes them) remuxed to
// fragmented MP4 in memory with libavformat: the packets are copied, never
// re-encoded; H.264 and AAC (ADTS headers turned into the MP4 form) are
// kept; packets the AVI marks as dropped (empty chunks) are left out while
// the others keep their times, so a gap stays a gap. Times start at 0.
// Any thread; one call at a time per object is not required (it has none).
#ifndef DVR_WEB_MP4_REMUXER_H
#define DVR_WEB_MP4_REMUXER_H

#include <chrono>
#include <cstdint>
#include <string>

namespace dvrweb {

struct RemuxLimits {
    int64_t maxInputBytes = int64_t{2} << 30;
    std::chrono::milliseconds timeLimit{20000};
};

class Mp4Remuxer {
public:
    // The MP4 of the file at path; empty with *error set when the file cannot
    // be read, holds no video, is too large or took too long.
    static std::string remux(const std::string &path, const RemuxLimits &limits,
                             std::string *error);
};

}  // namespace dvrweb

#endif  // DVR_WEB_MP4_REMUXER_H
