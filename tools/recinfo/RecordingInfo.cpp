#include "RecordingInfo.h"

#include <algorithm>

namespace dvrspace {

namespace {

// Presentation times in frame periods, in presentation order.
std::vector<int64_t> sortedPts(const std::vector<int64_t> &pts) {
    std::vector<int64_t> sorted(pts);
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

}  // namespace

size_t RecordingInfo::keyFrameCount() const {
    return static_cast<size_t>(std::count(keyFrames.begin(), keyFrames.end(), true));
}

int64_t RecordingInfo::missingSlots() const {
    const std::vector<int64_t> sorted = sortedPts(videoPts);
    int64_t missing = 0;
    for (size_t i = 1; i < sorted.size(); ++i) {
        missing += std::max<int64_t>(0, sorted[i] - sorted[i - 1] - 1);
    }
    return missing;
}

double RecordingInfo::largestGapMs() const {
    const std::vector<int64_t> sorted = sortedPts(videoPts);
    int64_t largest = 0;
    for (size_t i = 1; i < sorted.size(); ++i) {
        largest = std::max(largest, sorted[i] - sorted[i - 1]);
    }
    return frameRate > 0 ? 1000.0 * static_cast<double>(largest) / frameRate : 0;
}

double RecordingInfo::firstPtsSeconds() const {
    if (videoPts.empty() || frameRate <= 0) {
        return 0;
    }
    return static_cast<double>(*std::min_element(videoPts.begin(), videoPts.end())) / frameRate;
}

double RecordingInfo::lastPtsSeconds() const {
    if (videoPts.empty() || frameRate <= 0) {
        return 0;
    }
    return static_cast<double>(*std::max_element(videoPts.begin(), videoPts.end())) / frameRate;
}

}  // namespace dvrspace
