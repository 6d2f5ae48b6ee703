#include "RequestGuard.h"

#include "FileNamePrediction.h"

namespace dvrguard {

namespace {

std::string channel(int encId) {
    return "channel " + std::to_string(encId);
}

}  // namespace

Refusal RequestGuard::setResolution(int encId, int resolution, bool cameraAttached) {
    // 0 follows the camera; values outside 0..3 are answered -2 before the
    // lock is taken; without a camera the answer is -1, also before it.
    if (resolution < 1 || resolution > 3 || !cameraAttached) {
        return std::nullopt;
    }
    return channel(encId) +
           " has a camera attached, and the service accepts only 'default' (follow the "
           "camera): it answers -2 and leaves the channel's settings lock held, so every later "
           "setter on " +
           channel(encId) + " hangs and the server no longer stops on SIGTERM";
}

Refusal RequestGuard::stampCodes(const std::string &operation, int fontSize, int colour) {
    if (fontSize < 0 || fontSize > kLargestFontSize) {
        return "font size " + std::to_string(fontSize) + " is not 0 to " +
               std::to_string(kLargestFontSize) + ": " + operation + " aborts the service";
    }
    if (colour < 0 || colour > kLargestColour) {
        return "colour " + std::to_string(colour) + " is not 0 to " +
               std::to_string(kLargestColour) + ": the service aborts at the first stamped frame";
    }
    return std::nullopt;
}

Refusal RequestGuard::startRecord(int encId, int state, bool audioRecording, bool audioAttached) {
    constexpr int kReady = 2;
    if (state != kReady || !audioRecording || audioAttached) {
        return std::nullopt;
    }
    return channel(encId) +
           " records audio but has no audio input attached: the service aborts when the "
           "recording starts (attachAudio " +
           std::to_string(encId) + " AUD_ID, or setAudioRecording " + std::to_string(encId) +
           " off)";
}

Refusal RequestGuard::autoNextFile(int encId, bool on, int state) {
    constexpr int kRecording = 3;
    if (!on || state == kRecording) {
        return std::nullopt;
    }
    return "unless a client answers file names (for example 'dvrctl watch --file-name NAME'), "
           "the first startRecord of " +
           channel(encId) +
           " aborts the service (its default name needs a file length the channel has not "
           "started with yet); add --force when a client answers names";
}

Refusal RequestGuard::storagePath(int encId, const std::string &path, const ChannelNaming &naming,
                                  std::time_t now) {
    if (path.empty() || static_cast<long long>(path.size()) >= naming.fileNameLengthLimit) {
        return std::nullopt;  // cleared, or answered -2 with nothing changed
    }
    const FileNamePrediction prediction = FileNamePrediction::defaultName(
        path, encId, naming.format, naming.fileLengthS, naming.fileNameLengthLimit, now);
    if (!prediction.abortReason().empty()) {
        return "in '" + path + "' " + prediction.abortReason();
    }
    if (!prediction.mangled()) {
        return std::nullopt;
    }
    return "the service would cut or mangle the default names in '" + path +
           "' (it cuts a default name before its times at 63 characters and the path at its "
           "first %, S or T): '" +
           prediction.intended() + "' would become '" + prediction.name() + "'";
}

Refusal RequestGuard::fileNameFormat(const std::string &pattern, const std::string &timeFormat,
                                     const ChannelNaming &naming, std::time_t now) {
    if (pattern.empty()) {
        return std::nullopt;  // back to the channel's own naming
    }
    const FileNamePrediction prediction = FileNamePrediction::patternName(
        pattern, timeFormat, naming.fileLengthS, naming.fileNameLengthLimit, now);
    if (!prediction.abortReason().empty()) {
        return prediction.abortReason();
    }
    if (!prediction.mangled()) {
        return std::nullopt;
    }
    return "the service would mangle the names of '" + pattern + "' (the text in front of %ST " +
           "ends at its first %, S or T, in front of %ET at its first %, E or T; a pattern at " +
           "the start stays literal): '" + prediction.intended() + "' would become '" +
           prediction.name() + "'";
}

std::string RequestGuard::colourName(int colour) {
    static const char *const kDrawn[] = {"magenta", "white", "yellow", "blue",   "green",
                                         "red",     "cyan",  "black",  "nothing"};
    if (colour < 0 || colour > kLargestColour) {
        return "";
    }
    return kDrawn[colour];
}

}  // namespace dvrguard
