#include "DecodedFrame.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace dvrtest {

DecodedFrame DecodedFrame::first(const std::string &path) {
    DecodedFrame result;
    AVFormatContext *input = nullptr;
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) {
        return result;
    }
    const int videoIndex = avformat_find_stream_info(input, nullptr) < 0
                               ? -1
                               : av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVCodecContext *decoder = nullptr;
    if (videoIndex >= 0) {
        const AVCodecParameters *parameters = input->streams[videoIndex]->codecpar;
        const AVCodec *codec = avcodec_find_decoder(parameters->codec_id);
        decoder = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(decoder, parameters);
        decoder->thread_count = 1;
        if (avcodec_open2(decoder, codec, nullptr) < 0) {
            avcodec_free_context(&decoder);
        }
    }
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    bool got = false;
    while (decoder != nullptr && !got && av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == videoIndex && avcodec_send_packet(decoder, packet) >= 0) {
            got = avcodec_receive_frame(decoder, frame) == 0;
        }
        av_packet_unref(packet);
    }
    if (decoder != nullptr && !got) {
        avcodec_send_packet(decoder, nullptr);
        got = avcodec_receive_frame(decoder, frame) == 0;
    }
    if (got) {
        result.width = frame->width;
        result.height = frame->height;
        result.luma.resize(static_cast<size_t>(frame->width) * frame->height);
        for (int y = 0; y < frame->height; ++y) {
            const uint8_t *row = frame->data[0] + static_cast<ptrdiff_t>(y) * frame->linesize[0];
            std::copy(row, row + frame->width,
                      result.luma.begin() + static_cast<ptrdiff_t>(y) * frame->width);
        }
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
    return result;
}

}  // namespace dvrtest
