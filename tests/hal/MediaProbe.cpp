#include "MediaProbe.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "DVRTestPattern.h"

MediaProbe MediaProbe::read(const std::string &path) {
    MediaProbe probe;
    AVFormatContext *input = nullptr;
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) {
        return probe;
    }
    if (avformat_find_stream_info(input, nullptr) < 0) {
        avformat_close_input(&input);
        return probe;
    }
    probe.opened = true;
    probe.container = input->iformat->name;
    const int videoIndex = av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int audioIndex = av_find_best_stream(input, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    AVCodecContext *decoder = nullptr;
    AVRational frameDuration{0, 1};
    if (videoIndex >= 0) {
        AVStream *stream = input->streams[videoIndex];
        probe.videoCodec = avcodec_get_name(stream->codecpar->codec_id);
        probe.width = stream->codecpar->width;
        probe.height = stream->codecpar->height;
        AVRational rate =
            stream->avg_frame_rate.num != 0 ? stream->avg_frame_rate : stream->r_frame_rate;
        probe.frameRate = av_q2d(rate);
        frameDuration = av_inv_q(rate);
        const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
        decoder = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(decoder, stream->codecpar);
        decoder->thread_count = 1;
        avcodec_open2(decoder, codec, nullptr);
    }
    if (audioIndex >= 0) {
        AVStream *stream = input->streams[audioIndex];
        probe.hasAudio = true;
        probe.audioCodec = avcodec_get_name(stream->codecpar->codec_id);
        probe.sampleRate = stream->codecpar->sample_rate;
        probe.channels = stream->codecpar->ch_layout.nb_channels;
    }
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    auto receive = [&] {
        while (avcodec_receive_frame(decoder, frame) == 0) {
            probe.frameNumbers.push_back(dvrspace::DVRTestPattern::readFrameNumber(
                frame->data[0], frame->width, frame->height, frame->linesize[0]));
        }
    };
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == videoIndex) {
            AVStream *stream = input->streams[videoIndex];
            // AVI stores decoding time stamps only.
            const int64_t pts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
            probe.videoPts.push_back(av_rescale_q(pts, stream->time_base, frameDuration));
            probe.keyFrames.push_back((packet->flags & AV_PKT_FLAG_KEY) != 0);
            if (avcodec_send_packet(decoder, packet) < 0) {
                ++probe.decodeErrors;
            }
            receive();
        } else if (packet->stream_index == audioIndex) {
            ++probe.audioPackets;
        }
        av_packet_unref(packet);
    }
    if (decoder != nullptr) {
        avcodec_send_packet(decoder, nullptr);
        receive();
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
    return probe;
}
