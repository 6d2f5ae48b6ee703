#include "PacketScan.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace dvrkeeper {

namespace {

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

struct InputCloser {
    void operator()(AVFormatContext *input) const { avformat_close_input(&input); }
};
struct PacketFree {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
struct DecoderFree {
    void operator()(AVCodecContext *decoder) const { avcodec_free_context(&decoder); }
};
struct FrameFree {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
using Packet = std::unique_ptr<AVPacket, PacketFree>;

// Whether the first picture unit of an Annex B packet is an IDR (H.264) or
// an IRAP (H.265) picture. Parameter sets and SEI in front are skipped; the
// scan ends at the first slice, a few bytes into the packet.
bool startsKeyPicture(const AVPacket &packet, AVCodecID codec) {
    const uint8_t *data = packet.data;
    for (int i = 0; i + 3 < packet.size; ++i) {
        if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) {
            continue;
        }
        const uint8_t header = data[i + 3];
        if (codec == AV_CODEC_ID_H264) {
            const int type = header & 0x1f;
            if (type >= 1 && type <= 5) {
                return type == 5;
            }
        } else {
            const int type = (header >> 1) & 0x3f;
            if (type <= 21) {
                return type >= 16;
            }
        }
        i += 2;
    }
    return false;
}

// The time between two pictures: the smallest step between their time
// stamps, or the header's rate when there are not two pictures; {0, 1} when
// neither tells.
AVRational framePeriod(const std::vector<int64_t> &pts, const AVStream &stream) {
    int64_t smallest = 0;
    for (size_t i = 1; i < pts.size(); ++i) {
        const int64_t step = pts[i] - pts[i - 1];
        if (step > 0 && (smallest == 0 || step < smallest)) {
            smallest = step;
        }
    }
    if (smallest > 0 && smallest <= std::numeric_limits<int>::max()) {
        return av_mul_q(stream.time_base, AVRational{static_cast<int>(smallest), 1});
    }
    const AVRational rate =
        stream.avg_frame_rate.num != 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    return rate.num != 0 ? av_inv_q(rate) : AVRational{0, 1};
}

// Decodes the pictures of one group; false when the decoder refused one.
bool decodes(const AVCodecParameters &parameters, const std::vector<Packet> &group) {
    const AVCodec *codec = avcodec_find_decoder(parameters.codec_id);
    if (codec == nullptr) {
        return false;
    }
    std::unique_ptr<AVCodecContext, DecoderFree> decoder(avcodec_alloc_context3(codec));
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    if (!decoder || !frame || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) {
        return false;
    }
    decoder->thread_count = 1;
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0) {
        return false;
    }
    bool clean = true;
    for (const Packet &packet : group) {
        clean = avcodec_send_packet(decoder.get(), packet.get()) >= 0 && clean;
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            clean = clean && frame->decode_error_flags == 0;
        }
    }
    avcodec_send_packet(decoder.get(), nullptr);
    while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
        clean = clean && frame->decode_error_flags == 0;
    }
    return clean;
}

}  // namespace

dvrspace::RecordingInfo PacketScan::read(const std::string &path, bool lastGroup) {
    dvrspace::RecordingInfo info;
    struct stat fileStat {};
    if (stat(path.c_str(), &fileStat) != 0) {
        info.error = std::string("cannot stat: ") + std::strerror(errno);
        return info;
    }
    info.sizeBytes = static_cast<int64_t>(fileStat.st_size);

    AVFormatContext *opened = avformat_alloc_context();
    if (opened == nullptr) {
        info.error = "out of memory";
        return info;
    }
    // Packets as the container frames them: no parser splitting or merging
    // them, no time stamps made up.
    opened->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    const int status = avformat_open_input(&opened, path.c_str(), nullptr, nullptr);
    if (status < 0) {
        info.error = "cannot open: " + errorText(status);
        return info;
    }
    const std::unique_ptr<AVFormatContext, InputCloser> input(opened);
    info.opened = true;
    info.container = input->iformat->name;
    int videoIndex = -1;
    int audioIndex = -1;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVMediaType type = input->streams[i]->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_VIDEO && videoIndex < 0) {
            videoIndex = static_cast<int>(i);
        } else if (type == AVMEDIA_TYPE_AUDIO && audioIndex < 0) {
            audioIndex = static_cast<int>(i);
        }
    }
    info.hasAudio = audioIndex >= 0;
    const AVCodecID codec =
        videoIndex >= 0 ? input->streams[videoIndex]->codecpar->codec_id : AV_CODEC_ID_NONE;
    const bool annexB = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;

    // Time stamps in the stream's time base until the frame period is known.
    std::vector<int64_t> pts;
    double startSeconds = std::numeric_limits<double>::max();
    double endSeconds = std::numeric_limits<double>::lowest();
    std::vector<Packet> group;
    Packet packet(av_packet_alloc());
    while (packet && av_read_frame(input.get(), packet.get()) >= 0) {
        const int64_t stamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        const AVRational timeBase = input->streams[packet->stream_index]->time_base;
        if (packet->stream_index == audioIndex && stamp != AV_NOPTS_VALUE) {
            startSeconds = std::min(startSeconds, stamp * av_q2d(timeBase));
            endSeconds = std::max(endSeconds, (stamp + packet->duration) * av_q2d(timeBase));
            ++info.audioPackets;
        }
        // A video packet without data is an AVI "drop" chunk: a frame period
        // the recording left empty.
        if (packet->stream_index == videoIndex && packet->size > 0 && stamp != AV_NOPTS_VALUE) {
            const bool key = (packet->flags & AV_PKT_FLAG_KEY) != 0 ||
                             (annexB && startsKeyPicture(*packet, codec));
            pts.push_back(stamp);
            info.keyFrames.push_back(key);
            if (lastGroup) {
                if (key) {
                    group.clear();
                }
                group.emplace_back(av_packet_clone(packet.get()));
            }
        }
        av_packet_unref(packet.get());
    }

    if (videoIndex >= 0) {
        const AVStream *stream = input->streams[videoIndex];
        const AVRational frameDuration = framePeriod(pts, *stream);
        info.videoCodec = avcodec_get_name(codec);
        info.width = stream->codecpar->width;
        info.height = stream->codecpar->height;
        info.frameRate = frameDuration.num != 0 ? 1 / av_q2d(frameDuration) : 0;
        info.declaredVideoFrames = stream->nb_frames;
        for (const int64_t stamp : pts) {
            const int64_t frames =
                frameDuration.num != 0 ? av_rescale_q(stamp, stream->time_base, frameDuration) : 0;
            info.videoPts.push_back(frames);
        }
        if (!pts.empty()) {
            const double periodSeconds = frameDuration.num != 0 ? av_q2d(frameDuration) : 0;
            startSeconds = std::min(startSeconds, *std::min_element(pts.begin(), pts.end()) *
                                                      av_q2d(stream->time_base));
            endSeconds = std::max(
                endSeconds, *std::max_element(pts.begin(), pts.end()) * av_q2d(stream->time_base) +
                                periodSeconds);
        }
        if (lastGroup) {
            info.decodedToEnd = !group.empty() && decodes(*stream->codecpar, group);
        }
    }
    if (endSeconds > startSeconds) {
        info.durationSeconds = endSeconds - startSeconds;
    }
    return info;
}

}  // namespace dvrkeeper
