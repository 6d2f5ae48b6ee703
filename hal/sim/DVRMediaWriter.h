// The FFmpeg side of a simulated encoder: H.264 (libx264) video from NV12
// planes, scaled when the output size differs, audio as AAC (MPEG-TS) or PCM
// (AVI) from 16-bit PCM, written into a sequence of files. Time stamps run on
// across the files of one recording in MPEG-TS; AVI has no start offset, so
// every AVI file starts at 0. Every file starts with a key frame.
//
// Time comes from the capture time stamps: a picture's presentation time is
// its capture time relative to the recording's first picture, in frame
// periods ("slots"), and audio is placed by the capture time of its samples.
// A picture the encoder was never given leaves its slot empty (a gap in
// MPEG-TS, an empty "drop" chunk in AVI), so the file plays in real time.
// Output is flushed to the file at every key frame (at least once a second),
// so a killed process loses at most the last second.
//
// Not thread safe: the owner serialises all calls. Results are 0 or a
// negative errno-style code (FFmpeg's AVERROR of system errors).
#ifndef DVR_MEDIA_WRITER_H
#define DVR_MEDIA_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace dvrspace {

struct DVRMediaFormat {
    int container = 0;  // DVRFileFormat_e
    int inputWidth = 0;
    int inputHeight = 0;
    int inputStride = 0;
    int width = 0;  // output
    int height = 0;
    int frameRate = 0;
    int bitRateMbps = 0;
    bool audio = false;
    int sampleRate = 0;
    int channels = 1;
    std::string preset;
    std::string tune;
    int threads = 1;
    int keyFrameInterval = 30;  // frames
};

// What the open or last completed file holds.
struct DVRMediaFileStats {
    int64_t framesWritten = 0;
    int64_t slotsDropped = 0;  // empty frame periods between its first and last picture
};

class DVRMediaWriter {
public:
    DVRMediaWriter() = default;
    ~DVRMediaWriter();
    DVRMediaWriter(const DVRMediaWriter &) = delete;
    DVRMediaWriter &operator=(const DVRMediaWriter &) = delete;

    // Opens the codecs for one recording; *error explains a failure.
    int open(const DVRMediaFormat &format, std::string *error);
    // Starts the next file of the recording. The file itself is made with the
    // first picture or audio written into it, so a recording stopped before
    // any data leaves no empty, unplayable file behind.
    void startFile(const std::string &path);
    // Encodes one picture (input size and stride) captured at captureUs
    // (steady clock, µs; 0 when unknown: the slot after the last) into the
    // open file. A picture whose frame period already holds one (a camera
    // faster than the recording's rate) is left out.
    int writeVideo(const uint8_t *luma, const uint8_t *chroma, uint64_t captureUs);
    // The next picture becomes a key frame.
    void requestKeyFrame() { mKeyFrameRequested = true; }
    // Encodes interleaved 16-bit PCM whose first sample was captured at
    // captureUs (0: right after the last); a trailing partial sample is
    // dropped. Silence fills a gap, samples before the end of those already
    // written are dropped.
    int writeAudio(const void *pcm, int bytes, uint64_t captureUs);
    // Completes the open file with its trailer. lastFile drains the codecs
    // first, after which open() is needed again.
    int closeFile(bool lastFile);
    // Frees the codecs and any open file without completing it.
    void close();

    // A file was started and not yet closed.
    bool hasFile() const { return mFile != nullptr || !mPendingPath.empty(); }
    // The started file exists on disk.
    bool fileCreated() const { return mFile != nullptr; }
    // A picture captured at captureUs lies at or past the end of a file of
    // slotsPerFile frame periods that already holds pictures.
    bool belongsToNextFile(uint64_t captureUs, int64_t slotsPerFile) const;
    const DVRMediaFileStats &fileStats() const { return mFileStats; }
    // Capture time of the recording's last picture; 0 before the first or
    // when it came without one.
    uint64_t lastCaptureUs() const { return mLastCaptureUs; }
    // Capture time of the last audio given to writeAudio with one, written
    // or not; 0 before.
    uint64_t lastAudioCaptureUs() const { return mLastAudioCaptureUs; }

private:
    int createFile();
    // The frame period of a picture captured at captureUs.
    int64_t slotOf(uint64_t captureUs) const;
    int64_t samplePositionOf(uint64_t captureUs) const;
    // Starts an AVI file's audio at the time of its first picture.
    void alignAviAudio(int64_t firstSlot);
    int encodePendingAudio();
    // Pushes everything buffered for the file onto the disk.
    int flushFile();
    int openVideoCodec(std::string *error);
    int openAudioCodec(std::string *error);
    int encodeVideo(AVFrame *frame);
    int encodeAudioSamples(int sampleCount);
    int drain(AVCodecContext *codec, AVFrame *frame, AVStream *stream, int64_t fileStart);
    void closeOutput();

    DVRMediaFormat mFormat;
    AVCodecContext *mVideoCodec = nullptr;
    AVCodecContext *mAudioCodec = nullptr;
    SwsContext *mScaler = nullptr;
    AVFrame *mInputFrame = nullptr;
    AVFrame *mScaledFrame = nullptr;
    AVFrame *mAudioFrame = nullptr;
    AVPacket *mPacket = nullptr;
    std::string mPendingPath;  // started, not yet made
    AVFormatContext *mFile = nullptr;
    AVStream *mVideoStream = nullptr;
    AVStream *mAudioStream = nullptr;
    bool mHasOrigin = false;
    uint64_t mOriginUs = 0;       // capture time of the recording's slot 0
    int64_t mLastSlot = -1;       // of the last picture written
    uint64_t mLastCaptureUs = 0;  // of the last picture written
    uint64_t mLastAudioCaptureUs = 0;
    int64_t mAudioPts = 0;         // samples encoded since the origin
    bool mFileHasPicture = false;  // the open file's first slot is known
    int64_t mFileFirstSlot = 0;
    int64_t mLastKeySlot = 0;
    int64_t mFileFirstSample = 0;  // where the open file's audio begins
    DVRMediaFileStats mFileStats;
    bool mKeyFrameRequested = false;
    std::vector<int16_t> mPendingAudio;  // samples waiting for a full codec frame
};

}  // namespace dvrspace

#endif  // DVR_MEDIA_WRITER_H
