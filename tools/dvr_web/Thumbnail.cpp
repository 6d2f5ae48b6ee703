#include "Thumbnail.h"

#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include "AvErrorText.h"

namespace dvrweb {

namespace {

using Clock = std::chrono::steady_clock;

// Packets read before giving up on finding a picture.
constexpr int kMaxPackets = 600;

struct InputCloser {
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
struct DecoderFree {
    void operator()(AVCodecContext *decoder) const { avcodec_free_context(&decoder); }
};
struct FrameFree {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
struct PacketFree {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
struct ScalerFree {
    void operator()(SwsContext *scaler) const { sws_freeContext(scaler); }
};

int pastDeadline(void *opaque) {
    return Clock::now() > *static_cast<Clock::time_point *>(opaque) ? 1 : 0;
}

std::string toImage(const AVFrame &frame, ImageType type, std::string *error) {
    const int width = std::min(frame.width, Thumbnail::kWidth) & ~1;
    const int height =
        std::max(2, static_cast<int>(int64_t{frame.height} * width / frame.width) & ~1);
    std::unique_ptr<SwsContext, ScalerFree> scaler(
        sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), width,
                       height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (scaler == nullptr) {
        *error = "cannot scale the picture";
        return "";
    }
    std::vector<uint8_t> rgb(static_cast<size_t>(width) * height * 3);
    uint8_t *planes[1] = {rgb.data()};
    const int strides[1] = {width * 3};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    return ImageEncoder::encode(rgb, width, height, type, error);
}

}  // namespace

std::string Thumbnail::make(const std::string &path, ImageType type, std::string *error) {
    Clock::time_point deadline = Clock::now() + kTimeLimit;
    AVFormatContext *opened = avformat_alloc_context();
    opened->interrupt_callback = {pastDeadline, &deadline};
    int result = avformat_open_input(&opened, path.c_str(), nullptr, nullptr);
    if (result < 0) {
        *error = "cannot open the recording: " + dvrspace::avErrorText(result);
        return "";
    }
    std::unique_ptr<AVFormatContext, InputCloser> input(opened);
    const AVCodec *codec = nullptr;
    const int stream = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream < 0 || codec == nullptr) {
        *error = "the recording holds no video";
        return "";
    }
    std::unique_ptr<AVCodecContext, DecoderFree> decoder(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), opened->streams[stream]->codecpar);
    decoder->thread_count = 1;
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0) {
        *error = "cannot open the video decoder";
        return "";
    }
    std::unique_ptr<AVPacket, PacketFree> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFree> frame(av_frame_alloc());
    bool keyFound = false;
    for (int read = 0; read < kMaxPackets && av_read_frame(opened, packet.get()) >= 0; ++read) {
        // Pictures before the first key frame cannot be decoded whole.
        keyFound =
            keyFound || (packet->stream_index == stream && (packet->flags & AV_PKT_FLAG_KEY));
        if (packet->stream_index == stream && keyFound && packet->size > 0) {
            avcodec_send_packet(decoder.get(), packet.get());
            if (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
                return toImage(*frame, type, error);
            }
        }
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(decoder.get(), nullptr);
    if (keyFound && avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
        return toImage(*frame, type, error);
    }
    *error = "no key frame could be decoded";
    return "";
}

}  // namespace dvrweb
