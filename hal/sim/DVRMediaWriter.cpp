#include "DVRMediaWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

#include "DVRTypes.h"

namespace dvrspace {

namespace {

// Camera frames live in the arena and outlive the encode call: lend them to
// FFmpeg without a copy.
void keepArenaMemory(void *, uint8_t *) {}

std::string describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

}  // namespace

DVRMediaWriter::~DVRMediaWriter() {
    close();
}

int DVRMediaWriter::open(const DVRMediaFormat &format, std::string *error) {
    // FFmpeg's per-file statistics would flood the service's stderr; failures
    // are reported through the results.
    av_log_set_level(AV_LOG_ERROR);
    close();
    mFormat = format;
    mPacket = av_packet_alloc();
    mInputFrame = av_frame_alloc();
    if (mPacket == nullptr || mInputFrame == nullptr) {
        *error = "out of memory";
        close();
        return AVERROR(ENOMEM);
    }
    int result = openVideoCodec(error);
    if (result == 0 && format.audio) {
        result = openAudioCodec(error);
    }
    if (result != 0) {
        close();
    }
    mHasOrigin = false;
    mOriginUs = 0;
    mLastSlot = -1;
    mLastCaptureUs = 0;
    mLastAudioCaptureUs = 0;
    mAudioPts = mFileFirstSlot = mFileFirstSample = mLastKeySlot = 0;
    mFileHasPicture = false;
    mFileStats = DVRMediaFileStats{};
    return result;
}

int DVRMediaWriter::openVideoCodec(std::string *error) {
    const AVCodec *codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr) {
        *error = "FFmpeg has no libx264 encoder";
        return AVERROR_ENCODER_NOT_FOUND;
    }
    mVideoCodec = avcodec_alloc_context3(codec);
    if (mVideoCodec == nullptr) {
        *error = "out of memory";
        return AVERROR(ENOMEM);
    }
    mVideoCodec->width = mFormat.width;
    mVideoCodec->height = mFormat.height;
    mVideoCodec->pix_fmt = AV_PIX_FMT_NV12;
    mVideoCodec->time_base = AVRational{1, mFormat.frameRate};
    mVideoCodec->framerate = AVRational{mFormat.frameRate, 1};
    mVideoCodec->bit_rate = static_cast<int64_t>(mFormat.bitRateMbps) * 1000000;
    mVideoCodec->gop_size = mFormat.keyFrameInterval;
    mVideoCodec->max_b_frames = 0;
    mVideoCodec->thread_count = mFormat.threads;
    av_opt_set(mVideoCodec->priv_data, "preset", mFormat.preset.c_str(), 0);
    if (!mFormat.tune.empty()) {
        av_opt_set(mVideoCodec->priv_data, "tune", mFormat.tune.c_str(), 0);
    }
    // A file must start with an IDR picture, not just an I picture.
    av_opt_set(mVideoCodec->priv_data, "forced-idr", "1", 0);
    int result = avcodec_open2(mVideoCodec, codec, nullptr);
    if (result < 0) {
        *error = "cannot open libx264: " + describe(result);
        return result;
    }
    if (mFormat.width != mFormat.inputWidth || mFormat.height != mFormat.inputHeight) {
        mScaler = sws_getContext(mFormat.inputWidth, mFormat.inputHeight, AV_PIX_FMT_NV12,
                                 mFormat.width, mFormat.height, AV_PIX_FMT_NV12, SWS_FAST_BILINEAR,
                                 nullptr, nullptr, nullptr);
        mScaledFrame = av_frame_alloc();
        if (mScaler == nullptr || mScaledFrame == nullptr) {
            *error = "cannot scale the camera's frames";
            return AVERROR(EINVAL);
        }
        mScaledFrame->format = AV_PIX_FMT_NV12;
        mScaledFrame->width = mFormat.width;
        mScaledFrame->height = mFormat.height;
        result = av_frame_get_buffer(mScaledFrame, 0);
        if (result < 0) {
            *error = "out of memory";
            return result;
        }
    }
    return 0;
}

int DVRMediaWriter::openAudioCodec(std::string *error) {
    const bool aac = mFormat.container == DVR_FILE_FORMAT_TS;
    const AVCodec *codec = avcodec_find_encoder(aac ? AV_CODEC_ID_AAC : AV_CODEC_ID_PCM_S16LE);
    if (codec == nullptr) {
        *error = aac ? "FFmpeg has no AAC encoder" : "FFmpeg has no PCM encoder";
        return AVERROR_ENCODER_NOT_FOUND;
    }
    mAudioCodec = avcodec_alloc_context3(codec);
    mAudioFrame = av_frame_alloc();
    if (mAudioCodec == nullptr || mAudioFrame == nullptr) {
        *error = "out of memory";
        return AVERROR(ENOMEM);
    }
    mAudioCodec->sample_fmt = aac ? AV_SAMPLE_FMT_FLTP : AV_SAMPLE_FMT_S16;
    mAudioCodec->sample_rate = mFormat.sampleRate;
    av_channel_layout_default(&mAudioCodec->ch_layout, mFormat.channels);
    mAudioCodec->time_base = AVRational{1, mFormat.sampleRate};
    if (aac) {
        mAudioCodec->bit_rate = 64000 * mFormat.channels;
        // MPEG-TS builds its ADTS headers from the codec's global header.
        mAudioCodec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    const int result = avcodec_open2(mAudioCodec, codec, nullptr);
    if (result < 0) {
        *error = "cannot open the audio encoder: " + describe(result);
        return result;
    }
    return 0;
}

void DVRMediaWriter::startFile(const std::string &path) {
    closeOutput();
    mPendingPath = path;
    mFileHasPicture = false;
    mFileFirstSample = mAudioPts;
    mFileStats = DVRMediaFileStats{};
}

int64_t DVRMediaWriter::slotOf(uint64_t captureUs) const {
    if (captureUs == 0 || !mHasOrigin) {
        return mLastSlot + 1;
    }
    const double elapsedUs = static_cast<double>(static_cast<int64_t>(captureUs - mOriginUs));
    return static_cast<int64_t>(std::llround(elapsedUs * mFormat.frameRate / 1e6));
}

void DVRMediaWriter::alignAviAudio(int64_t firstSlot) {
    if (mFormat.container != DVR_FILE_FORMAT_AVI || mAudioCodec == nullptr ||
        !mPendingAudio.empty()) {
        return;
    }
    // An AVI's audio plays from the file's start: it must begin with the
    // first picture's time. Audio of the time before belongs to the closed
    // file; skipping the position makes writeAudio drop it as late.
    const int64_t boundary = firstSlot * mFormat.sampleRate / mFormat.frameRate;
    mAudioPts = std::max(mAudioPts, boundary);
    mFileFirstSample = mAudioPts;
}

int64_t DVRMediaWriter::samplePositionOf(uint64_t captureUs) const {
    const double elapsedUs = static_cast<double>(static_cast<int64_t>(captureUs - mOriginUs));
    return static_cast<int64_t>(std::llround(elapsedUs * mFormat.sampleRate / 1e6));
}

bool DVRMediaWriter::belongsToNextFile(uint64_t captureUs, int64_t slotsPerFile) const {
    return mFile != nullptr && mFileHasPicture &&
           slotOf(captureUs) - mFileFirstSlot >= slotsPerFile;
}

int DVRMediaWriter::createFile() {
    if (mFile != nullptr) {
        return 0;
    }
    if (mPendingPath.empty()) {
        return AVERROR(EBADF);
    }
    const std::string path = mPendingPath;
    mPendingPath.clear();
    const bool ts = mFormat.container == DVR_FILE_FORMAT_TS;
    int result =
        avformat_alloc_output_context2(&mFile, nullptr, ts ? "mpegts" : "avi", path.c_str());
    if (result < 0) {
        return result;
    }
    mVideoStream = avformat_new_stream(mFile, nullptr);
    if (mVideoStream == nullptr) {
        closeOutput();
        return AVERROR(ENOMEM);
    }
    avcodec_parameters_from_context(mVideoStream->codecpar, mVideoCodec);
    mVideoStream->time_base = mVideoCodec->time_base;
    mVideoStream->avg_frame_rate = mVideoCodec->framerate;
    if (mAudioCodec != nullptr) {
        mAudioStream = avformat_new_stream(mFile, nullptr);
        if (mAudioStream == nullptr) {
            closeOutput();
            return AVERROR(ENOMEM);
        }
        avcodec_parameters_from_context(mAudioStream->codecpar, mAudioCodec);
        mAudioStream->time_base = mAudioCodec->time_base;
    }
    // Time stamps are continuous by construction; shifting them per file would
    // break the continuity across files.
    mFile->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    result = avio_open(&mFile->pb, path.c_str(), AVIO_FLAG_WRITE);
    if (result < 0) {
        closeOutput();
        return result;
    }
    result = avformat_write_header(mFile, nullptr);
    if (result < 0) {
        closeOutput();
        return result;
    }
    return 0;
}

int DVRMediaWriter::writeVideo(const uint8_t *luma, const uint8_t *chroma, uint64_t captureUs) {
    const int created = createFile();
    if (created < 0) {
        return created;
    }
    if (!mHasOrigin && captureUs != 0) {
        mOriginUs = captureUs;
        mHasOrigin = true;
    }
    const int64_t slot = slotOf(captureUs);
    if (slot <= mLastSlot) {
        // A picture for a frame period already shown (a camera faster than
        // the recording's rate): the file keeps one picture per period.
        return 0;
    }
    if (!mFileHasPicture) {
        mFileFirstSlot = slot;
        mFileHasPicture = true;
        alignAviAudio(slot);
    }
    const int stride = mFormat.inputStride;
    const size_t lumaBytes = static_cast<size_t>(stride) * mFormat.inputHeight;
    AVFrame *frame = mInputFrame;
    frame->format = AV_PIX_FMT_NV12;
    frame->width = mFormat.inputWidth;
    frame->height = mFormat.inputHeight;
    frame->data[0] = const_cast<uint8_t *>(luma);
    frame->data[1] = const_cast<uint8_t *>(chroma);
    frame->linesize[0] = frame->linesize[1] = stride;
    if (mScaler != nullptr) {
        int result = av_frame_make_writable(mScaledFrame);
        if (result < 0) {
            return result;
        }
        sws_scale(mScaler, frame->data, frame->linesize, 0, mFormat.inputHeight, mScaledFrame->data,
                  mScaledFrame->linesize);
        frame = mScaledFrame;
    } else {
        frame->buf[0] = av_buffer_create(const_cast<uint8_t *>(luma), lumaBytes, keepArenaMemory,
                                         nullptr, AV_BUFFER_FLAG_READONLY);
        frame->buf[1] = av_buffer_create(const_cast<uint8_t *>(chroma), lumaBytes / 2,
                                         keepArenaMemory, nullptr, AV_BUFFER_FLAG_READONLY);
        if (frame->buf[0] == nullptr || frame->buf[1] == nullptr) {
            av_frame_unref(frame);
            return AVERROR(ENOMEM);
        }
    }
    frame->pts = slot;
    // Key frames by time, not by count: with frames missing, a count would
    // leave more than the interval between them.
    const bool keyFrame = slot == mFileFirstSlot || mKeyFrameRequested ||
                          slot - mLastKeySlot >= mFormat.keyFrameInterval;
    mKeyFrameRequested = false;
    if (keyFrame) {
        mLastKeySlot = slot;
    }
    frame->pict_type = keyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    const int result = encodeVideo(frame);
    if (frame == mInputFrame) {
        av_frame_unref(frame);
    }
    mLastSlot = slot;
    mLastCaptureUs = captureUs;
    ++mFileStats.framesWritten;
    mFileStats.slotsDropped = slot - mFileFirstSlot + 1 - mFileStats.framesWritten;
    return result;
}

int DVRMediaWriter::encodeVideo(AVFrame *frame) {
    const int64_t fileStart = mFormat.container == DVR_FILE_FORMAT_TS ? 0 : mFileFirstSlot;
    return drain(mVideoCodec, frame, mVideoStream, fileStart);
}

int DVRMediaWriter::writeAudio(const void *pcm, int bytes, uint64_t captureUs) {
    if (mAudioCodec == nullptr) {
        return AVERROR(EBADF);
    }
    const int created = createFile();
    if (created < 0) {
        return created;
    }
    const int channels = mFormat.channels;
    const auto *samples = static_cast<const int16_t *>(pcm);
    int64_t sampleCount = bytes / (2 * channels);
    if (captureUs != 0) {
        mLastAudioCaptureUs = captureUs;
        if (!mHasOrigin) {
            mOriginUs = captureUs;
            mHasOrigin = true;
        }
        const int64_t next = mAudioPts + static_cast<int64_t>(mPendingAudio.size()) / channels;
        const int64_t offset = samplePositionOf(captureUs) - next;
        // Jitter below 5 ms is left alone; a gap up to 10 s is filled with
        // silence (a longer one would only be a wrong clock).
        const int64_t tolerance = mFormat.sampleRate / 200;
        if (offset > tolerance) {
            const int64_t silence = std::min<int64_t>(offset, 10LL * mFormat.sampleRate);
            mPendingAudio.insert(mPendingAudio.end(), static_cast<size_t>(silence * channels), 0);
        } else if (offset < -tolerance) {
            const int64_t late = std::min(-offset, sampleCount);
            samples += late * channels;
            sampleCount -= late;
        }
    }
    mPendingAudio.insert(mPendingAudio.end(), samples,
                         samples + static_cast<size_t>(sampleCount) * channels);
    return encodePendingAudio();
}

int DVRMediaWriter::encodePendingAudio() {
    const int frameSize = mAudioCodec->frame_size;
    int available = static_cast<int>(mPendingAudio.size()) / mFormat.channels;
    if (frameSize == 0) {
        // PCM takes any length at once.
        return available > 0 ? encodeAudioSamples(available) : 0;
    }
    while (available >= frameSize) {
        const int result = encodeAudioSamples(frameSize);
        if (result < 0) {
            return result;
        }
        available -= frameSize;
    }
    return 0;
}

int DVRMediaWriter::encodeAudioSamples(int sampleCount) {
    AVFrame *frame = mAudioFrame;
    av_frame_unref(frame);
    frame->format = mAudioCodec->sample_fmt;
    frame->nb_samples = sampleCount;
    frame->sample_rate = mAudioCodec->sample_rate;
    int result = av_channel_layout_copy(&frame->ch_layout, &mAudioCodec->ch_layout);
    if (result >= 0) {
        result = av_frame_get_buffer(frame, 0);
    }
    if (result < 0) {
        return result;
    }
    const int channels = mFormat.channels;
    if (mAudioCodec->sample_fmt == AV_SAMPLE_FMT_FLTP) {
        for (int channel = 0; channel < channels; ++channel) {
            auto *plane = reinterpret_cast<float *>(frame->data[channel]);
            for (int index = 0; index < sampleCount; ++index) {
                plane[index] =
                    static_cast<float>(mPendingAudio[index * channels + channel]) / 32768.0f;
            }
        }
    } else {
        std::memcpy(frame->data[0], mPendingAudio.data(),
                    static_cast<size_t>(sampleCount) * channels * sizeof(int16_t));
    }
    mPendingAudio.erase(mPendingAudio.begin(), mPendingAudio.begin() + sampleCount * channels);
    frame->pts = mAudioPts;
    mAudioPts += sampleCount;
    const int64_t fileStart = mFormat.container == DVR_FILE_FORMAT_TS ? 0 : mFileFirstSample;
    return drain(mAudioCodec, frame, mAudioStream, fileStart);
}

int DVRMediaWriter::flushFile() {
    int result = av_interleaved_write_frame(mFile, nullptr);
    if (result >= 0) {
        result = av_write_frame(mFile, nullptr);
    }
    avio_flush(mFile->pb);
    return result < 0 ? result : mFile->pb->error;
}

int DVRMediaWriter::drain(AVCodecContext *codec, AVFrame *frame, AVStream *stream,
                          int64_t fileStart) {
    int result = avcodec_send_frame(codec, frame);
    if (result < 0) {
        return result;
    }
    while ((result = avcodec_receive_packet(codec, mPacket)) == 0) {
        // A crash loses at most what follows the last key frame.
        const bool flush = stream == mVideoStream && (mPacket->flags & AV_PKT_FLAG_KEY) != 0;
        mPacket->stream_index = stream->index;
        mPacket->pts -= fileStart;
        mPacket->dts -= fileStart;
        av_packet_rescale_ts(mPacket, codec->time_base, stream->time_base);
        result = av_interleaved_write_frame(mFile, mPacket);
        if (result >= 0 && flush) {
            result = flushFile();
        }
        if (result < 0) {
            av_packet_unref(mPacket);
            return result;
        }
    }
    return result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result;
}

int DVRMediaWriter::closeFile(bool lastFile) {
    mPendingPath.clear();
    if (mFile == nullptr) {
        return 0;
    }
    int result = 0;
    if (lastFile) {
        if (mAudioCodec != nullptr) {
            const int leftover = static_cast<int>(mPendingAudio.size()) / mFormat.channels;
            if (leftover > 0) {
                result = encodeAudioSamples(leftover);
            }
            const int64_t fileStart =
                mFormat.container == DVR_FILE_FORMAT_TS ? 0 : mFileFirstSample;
            const int drained = drain(mAudioCodec, nullptr, mAudioStream, fileStart);
            result = result < 0 ? result : drained;
        }
        const int64_t fileStart = mFormat.container == DVR_FILE_FORMAT_TS ? 0 : mFileFirstSlot;
        const int drained = drain(mVideoCodec, nullptr, mVideoStream, fileStart);
        result = result < 0 ? result : drained;
    }
    const int trailer = av_write_trailer(mFile);
    result = result < 0 ? result : trailer;
    const int ioError = mFile->pb != nullptr ? mFile->pb->error : 0;
    result = result < 0 ? result : ioError;
    const int closed = avio_closep(&mFile->pb);
    result = result < 0 ? result : closed;
    avformat_free_context(mFile);
    mFile = nullptr;
    mVideoStream = mAudioStream = nullptr;
    return result;
}

void DVRMediaWriter::closeOutput() {
    mPendingPath.clear();
    if (mFile != nullptr) {
        avio_closep(&mFile->pb);
        avformat_free_context(mFile);
        mFile = nullptr;
    }
    mVideoStream = mAudioStream = nullptr;
}

void DVRMediaWriter::close() {
    closeOutput();
    avcodec_free_context(&mVideoCodec);
    avcodec_free_context(&mAudioCodec);
    sws_freeContext(mScaler);
    mScaler = nullptr;
    av_frame_free(&mInputFrame);
    av_frame_free(&mScaledFrame);
    av_frame_free(&mAudioFrame);
    av_packet_free(&mPacket);
    mPendingAudio.clear();
}

}  // namespace dvrspace
