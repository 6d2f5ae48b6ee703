#include "SnapshotImage.h"

#include <cstdlib>

#include "DVRPhysicalArena.h"
#include "Nv12Image.h"

using dvrctl::Nv12Image;
using dvrspace::DVRPhysicalArena;

namespace dvrweb {

std::string SnapshotImage::findArena(std::string *error) const {
    if (mArena) {
        return *mArena;
    }
    const char *variable = std::getenv("DVR_ARENA");
    if (variable != nullptr && *variable != '\0') {
        return variable;
    }
    const std::vector<std::string> live =
        DVRPhysicalArena::findLive(DVRPhysicalArena::defaultDirectory());
    if (live.size() == 1) {
        return live[0];
    }
    *error = live.empty() ? "no frame memory of a running service; give dvr-web --arena"
                          : "several running services' frame memories; give dvr-web --arena";
    return "";
}

std::string SnapshotImage::encode(const SnapshotFrame &frame, ImageType type,
                                  std::string *error) const {
    if (frame.width <= 0 || frame.height <= 0 || frame.width > kMaxSide ||
        frame.height > kMaxSide || frame.stride < frame.width) {
        *error = "the service gave a frame of " + std::to_string(frame.width) + "x" +
                 std::to_string(frame.height) + " with stride " + std::to_string(frame.stride);
        return "";
    }
    const std::string path = findArena(error);
    if (path.empty()) {
        return "";
    }
    const std::unique_ptr<DVRPhysicalArena> arena = DVRPhysicalArena::attach(path, error);
    if (arena == nullptr) {
        return "";
    }
    const auto *luma = static_cast<const uint8_t *>(
        arena->translate(frame.lumaPa, Nv12Image::lumaBytes(frame.height, frame.stride)));
    const auto *chroma = static_cast<const uint8_t *>(
        arena->translate(frame.chromaPa, Nv12Image::chromaBytes(frame.height, frame.stride)));
    if (luma == nullptr || chroma == nullptr) {
        *error = "the frame's planes do not lie in the frame memory " + path;
        return "";
    }
    const std::vector<uint8_t> rgb =
        Nv12Image(luma, chroma, frame.width, frame.height, frame.stride).toRgb();
    return ImageEncoder::encode(rgb, frame.width, frame.height, type, error);
}

}  // namespace dvrweb
