// The client-side checks of requests whose documented outcome wedges a
// channel or aborts the recording service. Each check takes the request and
// what the service reports about the channel, and returns the reason to
// refuse it (one line, naming the channel and what to do instead), or
// nothing when the request is safe to send. Used by dvrctl before it sends;
// meant for any client (a keeper, a web console). Pure; any thread.
#ifndef DVR_GUARD_REQUEST_GUARD_H
#define DVR_GUARD_REQUEST_GUARD_H

#include <ctime>
#include <optional>
#include <string>

namespace dvrguard {

using Refusal = std::optional<std::string>;

// What the service reports about a channel's naming, for the name checks.
struct ChannelNaming {
    int format = 1;               // getOutputFormat
    int fileLengthS = 0;          // getFileLength
    int fileNameLengthLimit = 0;  // getEncoderCapability
};

class RequestGuard {
public:
    // The client stamp codes the service accepts: font size 0 to 4, colour 0
    // to 8 (the renderer draws colour 8 - code).
    static constexpr int kLargestFontSize = 4;
    static constexpr int kLargestColour = 8;

    // setResolution other than 0 (follow the camera) while a camera is
    // attached answers -2 and leaves the channel's settings lock held.
    static Refusal setResolution(int encId, int resolution, bool cameraAttached);
    // A font size outside 0..4 aborts the service at once; a colour outside
    // 0..8 aborts it at the first stamped frame.
    static Refusal stampCodes(const std::string &operation, int fontSize, int colour);
    // Audio recording on with no audio input attached aborts the service
    // when the recording starts; a channel not ready (state 2) does not start.
    static Refusal startRecord(int encId, int state, bool audioRecording, bool audioAttached);
    // autoNextFile on before a channel's first start: unless a client
    // answers file names, that start aborts the service. Safe while
    // recording (state 3).
    static Refusal autoNextFile(int encId, bool on, int state);
    // A storage path whose default names the service would cut or mangle.
    static Refusal storagePath(int encId, const std::string &path, const ChannelNaming &naming,
                               std::time_t now);
    // A pattern (setFileNameFormat) whose names the service would mangle, or
    // on which it aborts.
    static Refusal fileNameFormat(const std::string &pattern, const std::string &timeFormat,
                                  const ChannelNaming &naming, std::time_t now);

    // What a client colour code draws ("white"), or "" outside 0..8.
    static std::string colourName(int colour);
};

}  // namespace dvrguard

#endif  // DVR_GUARD_REQUEST_GUARD_H
