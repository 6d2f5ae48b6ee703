// A snapshot the service took (its planes' physical addresses) read out of
// the simulator's frame memory and encoded as an image: the NV12 -> RGB path
// of `dvrctl snapshot`. The arena is --arena, else $DVR_ARENA, else the one
// arena of a running process in the default directory. Any thread.
#ifndef DVR_WEB_SNAPSHOT_IMAGE_H
#define DVR_WEB_SNAPSHOT_IMAGE_H

#include <cstdint>
#include <optional>
#include <string>

#include "ImageEncoder.h"

namespace dvrweb {

struct SnapshotFrame {
    uint32_t lumaPa = 0;
    uint32_t chromaPa = 0;
    int width = 0;
    int height = 0;
    int stride = 0;
};

class SnapshotImage {
public:
    // Far beyond any camera; keeps a corrupt reply from asking for gigabytes.
    static constexpr int kMaxSide = 16384;

    explicit SnapshotImage(std::optional<std::string> arena) : mArena(std::move(arena)) {}

    // The frame as an image; empty with *error set when it cannot be read.
    std::string encode(const SnapshotFrame &frame, ImageType type, std::string *error) const;

private:
    std::string findArena(std::string *error) const;

    const std::optional<std::string> mArena;
};

}  // namespace dvrweb

#endif  // DVR_WEB_SNAPSHOT_IMAGE_H
