#include "Mp4Remuxer.h"

#include <sys/stat.h>

#include <deque>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include "AvErrorText.h"

namespace dvrweb {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kIoBufferBytes = 64 * 1024;
// Packets held back until every kept stream has shown its first one (the
// header needs the AAC configuration the first audio packet carries).
constexpr size_t kMaxHeldPackets = 2000;

struct InputCloser {
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};
struct OutputCloser {
    void operator()(AVFormatContext *context) const {
        if (context->pb != nullptr) {
            av_freep(&context->pb->buffer);
            avio_context_free(&context->pb);
        }
        avformat_free_context(context);
    }
};
struct PacketFree {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
struct FilterFree {
    void operator()(AVBSFContext *filter) const { av_bsf_free(&filter); }
};
using Packet = std::unique_ptr<AVPacket, PacketFree>;

int appendOutput(void *opaque, uint8_t *data, int size) {
    static_cast<std::string *>(opaque)->append(reinterpret_cast<const char *>(data), size);
    return size;
}

int pastDeadline(void *opaque) {
    return Clock::now() > *static_cast<Clock::time_point *>(opaque) ? 1 : 0;
}

// One input stream that goes into the MP4.
struct Track {
    int input = -1;
    AVStream *output = nullptr;
    std::unique_ptr<AVBSFContext, FilterFree> adtsToAsc;  // ADTS AAC only
    bool seen = false;
    int64_t lastDts = AV_NOPTS_VALUE;
};

class Remux {
public:
    Remux(const std::string &path, const RemuxLimits &limits, std::string *error)
        : mPath(path), mDeadline(Clock::now() + limits.timeLimit), mError(*error) {}

    std::string run() {
        if (!openInput() || !openOutput()) {
            return "";
        }
        Packet packet(av_packet_alloc());
        std::deque<Packet> held;
        bool headerWritten = false;
        int64_t start = AV_NOPTS_VALUE;
        int result = 0;
        while ((result = av_read_frame(mInput.get(), packet.get())) >= 0) {
            Track *track = trackOf(packet->stream_index);
            // An AVI marks a frame it dropped with an empty chunk: its slot
            // stays empty, the next frame keeps its own time.
            if (track == nullptr || packet->size == 0) {
                av_packet_unref(packet.get());
                continue;
            }
            if (!filterAudio(*track, packet.get())) {
                continue;
            }
            track->seen = true;
            if (!headerWritten) {
                held.emplace_back(av_packet_clone(packet.get()));
                av_packet_unref(packet.get());
                if (!allSeen() && held.size() < kMaxHeldPackets) {
                    continue;
                }
                start = earliest(held);
                if (!writeHeader()) {
                    return "";
                }
                headerWritten = true;
                for (Packet &early : held) {
                    if (!write(early.get(), start)) {
                        return "";
                    }
                }
                held.clear();
                continue;
            }
            if (!write(packet.get(), start)) {
                return "";
            }
        }
        if (result != AVERROR_EOF) {
            mError = pastDeadline(&mDeadline)
                         ? "the remux took longer than its time limit"
                         : "cannot read " + mPath + ": " + dvrspace::avErrorText(result);
            return "";
        }
        if (!headerWritten) {
            if (held.empty()) {
                mError = mPath + " holds no pictures";
                return "";
            }
            start = earliest(held);
            if (!writeHeader()) {
                return "";
            }
            for (Packet &early : held) {
                if (!write(early.get(), start)) {
                    return "";
                }
            }
        }
        result = av_write_trailer(mOutput.get());
        if (result < 0) {
            mError = "cannot finish the MP4: " + dvrspace::avErrorText(result);
            return "";
        }
        avio_flush(mOutput->pb);
        return std::move(mBytes);
    }

private:
    bool openInput() {
        AVFormatContext *input = avformat_alloc_context();
        input->interrupt_callback = {pastDeadline, &mDeadline};
        int result = avformat_open_input(&input, mPath.c_str(), nullptr, nullptr);
        if (result < 0) {
            mError = "cannot open " + mPath + ": " + dvrspace::avErrorText(result);
            return false;
        }
        mInput.reset(input);
        result = avformat_find_stream_info(input, nullptr);
        if (result < 0) {
            mError = "cannot read the streams of " + mPath + ": " + dvrspace::avErrorText(result);
            return false;
        }
        return true;
    }

    bool openOutput() {
        AVFormatContext *output = nullptr;
        if (avformat_alloc_output_context2(&output, nullptr, "mp4", nullptr) < 0) {
            mError = "no MP4 muxer";
            return false;
        }
        mOutput.reset(output);
        auto *buffer = static_cast<uint8_t *>(av_malloc(kIoBufferBytes));
        output->pb =
            avio_alloc_context(buffer, kIoBufferBytes, 1, &mBytes, nullptr, appendOutput, nullptr);
        if (output->pb == nullptr) {
            av_free(buffer);
            mError = "out of memory";
            return false;
        }
        bool hasVideo = false;
        for (unsigned i = 0; i < mInput->nb_streams; ++i) {
            const AVCodecParameters *in = mInput->streams[i]->codecpar;
            const bool video =
                in->codec_type == AVMEDIA_TYPE_VIDEO && in->codec_id == AV_CODEC_ID_H264;
            const bool audio =
                in->codec_type == AVMEDIA_TYPE_AUDIO && in->codec_id == AV_CODEC_ID_AAC;
            if (!(video && !hasVideo) && !audio) {
                continue;
            }
            hasVideo = hasVideo || video;
            auto track = std::make_unique<Track>();
            track->input = static_cast<int>(i);
            track->output = avformat_new_stream(output, nullptr);
            avcodec_parameters_copy(track->output->codecpar, in);
            track->output->codecpar->codec_tag = 0;
            track->output->time_base = mInput->streams[i]->time_base;
            if (audio && in->extradata_size == 0 && !openAdtsFilter(*track)) {
                return false;
            }
            mTracks.push_back(std::move(track));
        }
        if (!hasVideo) {
            mError = mPath + " holds no H.264 video";
            return false;
        }
        return true;
    }

    bool openAdtsFilter(Track &track) {
        AVBSFContext *filter = nullptr;
        const AVBitStreamFilter *adts = av_bsf_get_by_name("aac_adtstoasc");
        if (adts == nullptr || av_bsf_alloc(adts, &filter) < 0) {
            mError = "no aac_adtstoasc filter";
            return false;
        }
        track.adtsToAsc.reset(filter);
        avcodec_parameters_copy(filter->par_in, mInput->streams[track.input]->codecpar);
        filter->time_base_in = mInput->streams[track.input]->time_base;
        if (av_bsf_init(filter) < 0) {
            mError = "cannot start the aac_adtstoasc filter";
            return false;
        }
        return true;
    }

    // ADTS headers off; the first filtered packet gives the configuration.
    // False when the packet was used up (nothing to write).
    bool filterAudio(Track &track, AVPacket *packet) {
        if (!track.adtsToAsc) {
            return true;
        }
        if (av_bsf_send_packet(track.adtsToAsc.get(), packet) < 0 ||
            av_bsf_receive_packet(track.adtsToAsc.get(), packet) < 0) {
            av_packet_unref(packet);
            return false;
        }
        if (track.output->codecpar->extradata_size == 0) {
            avcodec_parameters_copy(track.output->codecpar, track.adtsToAsc->par_out);
            track.output->codecpar->codec_tag = 0;
        }
        return true;
    }

    bool writeHeader() {
        AVDictionary *options = nullptr;
        av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
        const int result = avformat_write_header(mOutput.get(), &options);
        av_dict_free(&options);
        if (result < 0) {
            mError = "cannot start the MP4: " + dvrspace::avErrorText(result);
            return false;
        }
        return true;
    }

    Track *trackOf(int input) {
        for (const auto &track : mTracks) {
            if (track->input == input) {
                return track.get();
            }
        }
        return nullptr;
    }

    bool allSeen() const {
        for (const auto &track : mTracks) {
            if (!track->seen) {
                return false;
            }
        }
        return true;
    }

    // The earliest time among the packets, in microseconds.
    int64_t earliest(const std::deque<Packet> &packets) {
        int64_t first = AV_NOPTS_VALUE;
        for (const Packet &packet : packets) {
            const int64_t time = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
            if (time == AV_NOPTS_VALUE) {
                continue;
            }
            const int64_t us = av_rescale_q(time, mInput->streams[packet->stream_index]->time_base,
                                            AV_TIME_BASE_Q);
            if (first == AV_NOPTS_VALUE || us < first) {
                first = us;
            }
        }
        return first == AV_NOPTS_VALUE ? 0 : first;
    }

    bool write(AVPacket *packet, int64_t startUs) {
        Track &track = *trackOf(packet->stream_index);
        const AVRational in = mInput->streams[track.input]->time_base;
        const int64_t offset = av_rescale_q(startUs, AV_TIME_BASE_Q, in);
        if (packet->dts == AV_NOPTS_VALUE) {
            packet->dts = packet->pts;
        }
        if (packet->pts == AV_NOPTS_VALUE) {
            packet->pts = packet->dts;
        }
        if (packet->dts == AV_NOPTS_VALUE) {
            av_packet_unref(packet);
            return true;
        }
        packet->dts -= offset;
        packet->pts -= offset;
        // Times must rise within a track; a repeated one moves up a tick.
        if (track.lastDts != AV_NOPTS_VALUE && packet->dts <= track.lastDts) {
            packet->dts = track.lastDts + 1;
        }
        if (packet->pts < packet->dts) {
            packet->pts = packet->dts;
        }
        track.lastDts = packet->dts;
        packet->stream_index = track.output->index;
        av_packet_rescale_ts(packet, in, track.output->time_base);
        packet->pos = -1;
        const int result = av_interleaved_write_frame(mOutput.get(), packet);
        if (result < 0) {
            mError = "cannot write the MP4: " + dvrspace::avErrorText(result);
            return false;
        }
        return true;
    }

    const std::string mPath;
    Clock::time_point mDeadline;
    std::string &mError;
    std::unique_ptr<AVFormatContext, InputCloser> mInput;
    std::unique_ptr<AVFormatContext, OutputCloser> mOutput;
    std::vector<std::unique_ptr<Track>> mTracks;
    std::string mBytes;
};

}  // namespace

std::string Mp4Remuxer::remux(const std::string &path, const RemuxLimits &limits,
                              std::string *error) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        *error = "the recording's file is gone";
        return "";
    }
    if (status.st_size > limits.maxInputBytes) {
        *error = "the recording is larger than the console remuxes (" +
                 std::to_string(limits.maxInputBytes) + " bytes)";
        return "";
    }
    return Remux(path, limits, error).run();
}

}  // namespace dvrweb
