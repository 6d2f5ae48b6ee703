#include "RecordingInfo.h"

#include <algorithm>

namespace dvrspace {

size_t RecordingInfo::keyFrameCount() const {
    return static_cast<size_t>(std::count(keyFrames.begin(), keyFrames.end(), true));
}

}  // namespace dvrspace
