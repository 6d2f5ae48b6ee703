// The FFmpeg side of a simulated encoder: H.264 (libx264) video from NV12
// planes, scaled when the output size differs, audio as AAC (MPEG-TS) or PCM
// (AVI) from 16-bit PCM, written into a sequence of files. Time stamps run on
// across the files of one recording in MPEG-TS; AVI has no start offset, so
// every AVI file starts at 0. Every file starts with a key frame.
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
    // Encodes one picture (input size and stride) into the open file.
    int writeVideo(const uint8_t *luma, const uint8_t *chroma);
    // The next picture becomes a key frame.
    void requestKeyFrame() { mKeyFrameRequested = true; }
    // Encodes interleaved 16-bit PCM; a trailing partial sample is dropped.
    int writeAudio(const void *pcm, int bytes);
    // Completes the open file with its trailer. lastFile drains the codecs
    // first, after which open() is needed again.
    int closeFile(bool lastFile);
    // Frees the codecs and any open file without completing it.
    void close();

    // A file was started and not yet closed.
    bool hasFile() const { return mFile != nullptr || !mPendingPath.empty(); }
    // The started file exists on disk.
    bool fileCreated() const { return mFile != nullptr; }
    int64_t videoFramesInFile() const { return mVideoPts - mFileFirstFrame; }

private:
    int createFile();
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
    int64_t mVideoPts = 0;         // frames since open()
    int64_t mAudioPts = 0;         // samples since open()
    int64_t mFileFirstFrame = 0;   // mVideoPts when the open file began
    int64_t mFileFirstSample = 0;  // mAudioPts likewise
    bool mKeyFrameRequested = false;
    std::vector<int16_t> mPendingAudio;  // samples waiting for a full codec frame
};

}  // namespace dvrspace

#endif  // DVR_MEDIA_WRITER_H
