#include "RecordingReader.h"

#include "AvErrorText.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace dvrspace {

namespace {

// Owns the demuxer, the optional decoder and their buffers for one read.
class Session {
public:
    ~Session() {
        av_frame_free(&mFrame);
        av_packet_free(&mPacket);
        avcodec_free_context(&mDecoder);
        avformat_close_input(&mInput);
    }

    AVFormatContext *mInput = nullptr;
    AVCodecContext *mDecoder = nullptr;
    AVPacket *mPacket = nullptr;
    AVFrame *mFrame = nullptr;
};

void drainPictures(Session &session, const RecordingReader::PictureSink &pictures) {
    while (avcodec_receive_frame(session.mDecoder, session.mFrame) == 0) {
        const AVFrame *frame = session.mFrame;
        pictures(frame->data[0], frame->width, frame->height, frame->linesize[0]);
    }
}

}  // namespace

RecordingInfo RecordingReader::read(const std::string &path) {
    return read(path, nullptr);
}

RecordingInfo RecordingReader::verify(const std::string &path) {
    RecordingInfo info = read(path, [](const uint8_t *, int, int, int) {});
    info.decodedToEnd = info.opened && info.decodeErrors == 0;
    return info;
}

RecordingInfo RecordingReader::read(const std::string &path, const PictureSink &pictures) {
    RecordingInfo info;
    struct stat fileStat {};
    if (stat(path.c_str(), &fileStat) != 0) {
        info.error = std::string("cannot stat: ") + strerror(errno);
        return info;
    }
    info.sizeBytes = static_cast<int64_t>(fileStat.st_size);

    Session session;
    int status = avformat_open_input(&session.mInput, path.c_str(), nullptr, nullptr);
    if (status < 0) {
        info.error = "cannot open: " + avErrorText(status);
        return info;
    }
    status = avformat_find_stream_info(session.mInput, nullptr);
    if (status < 0) {
        info.error = "no stream information: " + avErrorText(status);
        return info;
    }
    AVFormatContext *input = session.mInput;
    info.opened = true;
    info.container = input->iformat->name;
    const int videoIndex = av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int audioIndex = av_find_best_stream(input, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    AVRational frameDuration{0, 1};
    if (videoIndex >= 0) {
        const AVStream *stream = input->streams[videoIndex];
        info.videoCodec = avcodec_get_name(stream->codecpar->codec_id);
        info.width = stream->codecpar->width;
        info.height = stream->codecpar->height;
        const AVRational rate =
            stream->avg_frame_rate.num != 0 ? stream->avg_frame_rate : stream->r_frame_rate;
        info.frameRate = av_q2d(rate);
        info.declaredVideoFrames = stream->nb_frames;
        frameDuration = av_inv_q(rate);
        if (pictures) {
            const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
            session.mDecoder = avcodec_alloc_context3(codec);
            avcodec_parameters_to_context(session.mDecoder, stream->codecpar);
            session.mDecoder->thread_count = 1;
            avcodec_open2(session.mDecoder, codec, nullptr);
        }
    }
    if (audioIndex >= 0) {
        const AVStream *stream = input->streams[audioIndex];
        info.hasAudio = true;
        info.audioCodec = avcodec_get_name(stream->codecpar->codec_id);
        info.sampleRate = stream->codecpar->sample_rate;
        info.channels = stream->codecpar->ch_layout.nb_channels;
    }

    session.mPacket = av_packet_alloc();
    session.mFrame = av_frame_alloc();
    AVPacket *packet = session.mPacket;
    bool audioTimed = false;
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == videoIndex && packet->size == 0) {
            // An AVI "drop" chunk: a frame period the recording left empty.
        } else if (packet->stream_index == videoIndex) {
            const AVStream *stream = input->streams[videoIndex];
            // AVI stores decoding time stamps only.
            const int64_t pts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
            info.videoPts.push_back(av_rescale_q(pts, stream->time_base, frameDuration));
            info.keyFrames.push_back((packet->flags & AV_PKT_FLAG_KEY) != 0);
            if (session.mDecoder != nullptr) {
                if (avcodec_send_packet(session.mDecoder, packet) < 0) {
                    ++info.decodeErrors;
                }
                drainPictures(session, pictures);
            }
        } else if (packet->stream_index == audioIndex) {
            const AVRational timeBase = input->streams[audioIndex]->time_base;
            const int64_t pts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
            if (pts != AV_NOPTS_VALUE) {
                const double start = static_cast<double>(pts) * av_q2d(timeBase);
                const double end = static_cast<double>(pts + packet->duration) * av_q2d(timeBase);
                info.audioStartSeconds =
                    audioTimed ? std::min(info.audioStartSeconds, start) : start;
                info.audioEndSeconds = audioTimed ? std::max(info.audioEndSeconds, end) : end;
                audioTimed = true;
            }
            ++info.audioPackets;
        }
        av_packet_unref(packet);
    }
    if (session.mDecoder != nullptr) {
        avcodec_send_packet(session.mDecoder, nullptr);
        drainPictures(session, pictures);
    }

    // The container's own figure where it has one (MPEG-TS spans the time
    // stamps of all streams); otherwise the frames at their rate.
    if (input->duration != AV_NOPTS_VALUE && input->duration > 0) {
        info.durationSeconds = static_cast<double>(input->duration) / AV_TIME_BASE;
    } else if (info.frameRate > 0) {
        info.durationSeconds = static_cast<double>(info.videoFrames()) / info.frameRate;
    }
    return info;
}

}  // namespace dvrspace
