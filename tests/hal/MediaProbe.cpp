#include "MediaProbe.h"

#include "DVRTestPattern.h"
#include "RecordingReader.h"

MediaProbe MediaProbe::read(const std::string &path) {
    MediaProbe probe;
    std::vector<int64_t> frameNumbers;
    static_cast<dvrspace::RecordingInfo &>(probe) = dvrspace::RecordingReader::read(
        path, [&frameNumbers](const uint8_t *luma, int width, int height, int stride) {
            frameNumbers.push_back(
                dvrspace::DVRTestPattern::readFrameNumber(luma, width, height, stride));
        });
    probe.frameNumbers = std::move(frameNumbers);
    return probe;
}
