#include "RecordingRepair.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "AvErrorText.h"
#include "RecordingReader.h"

namespace dvrspace {

namespace {

// Owns the two sides of one copy.
class Remux {
public:
    ~Remux() {
        av_packet_free(&mPacket);
        avformat_close_input(&mInput);
        if (mOutput != nullptr) {
            avio_closep(&mOutput->pb);
            avformat_free_context(mOutput);
        }
    }

    // Copies every stream's packets from source into target; "" or why not.
    std::string copy(const std::string &source, const std::string &target) {
        int status = avformat_open_input(&mInput, source.c_str(), nullptr, nullptr);
        if (status < 0) {
            return "cannot open: " + avErrorText(status);
        }
        status = avformat_find_stream_info(mInput, nullptr);
        if (status < 0) {
            return "no stream information: " + avErrorText(status);
        }
        status = avformat_alloc_output_context2(&mOutput, nullptr, "avi", target.c_str());
        if (status < 0) {
            return "cannot make an AVI: " + avErrorText(status);
        }
        for (unsigned index = 0; index < mInput->nb_streams; ++index) {
            const AVStream *in = mInput->streams[index];
            AVStream *out = avformat_new_stream(mOutput, nullptr);
            if (out == nullptr || avcodec_parameters_copy(out->codecpar, in->codecpar) < 0) {
                return "out of memory";
            }
            out->codecpar->codec_tag = 0;
            out->time_base = in->time_base;
            out->avg_frame_rate = in->avg_frame_rate;
            out->r_frame_rate = in->r_frame_rate;
        }
        mOutput->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
        status = avio_open(&mOutput->pb, target.c_str(), AVIO_FLAG_WRITE);
        if (status < 0) {
            return "cannot write " + target + ": " + avErrorText(status);
        }
        status = avformat_write_header(mOutput, nullptr);
        if (status < 0) {
            return "cannot write " + target + ": " + avErrorText(status);
        }
        mPacket = av_packet_alloc();
        if (mPacket == nullptr) {
            return "out of memory";
        }
        // A torn last chunk (cut short by the kill) ends the copy:
        // everything before it is kept.
        while (av_read_frame(mInput, mPacket) >= 0 && (mPacket->flags & AV_PKT_FLAG_CORRUPT) == 0) {
            const AVStream *in = mInput->streams[mPacket->stream_index];
            const AVStream *out = mOutput->streams[mPacket->stream_index];
            // Empty "drop" chunks come back from the time stamp gaps they
            // leave, which the muxer fills again.
            if (mPacket->size > 0) {
                av_packet_rescale_ts(mPacket, in->time_base, out->time_base);
                mPacket->pos = -1;
                status = av_interleaved_write_frame(mOutput, mPacket);
                if (status < 0) {
                    return "cannot write " + target + ": " + avErrorText(status);
                }
            }
            av_packet_unref(mPacket);
        }
        status = av_write_trailer(mOutput);
        if (status >= 0) {
            status = avio_closep(&mOutput->pb);
        }
        return status < 0 ? "cannot complete " + target + ": " + avErrorText(status) : "";
    }

private:
    AVFormatContext *mInput = nullptr;
    AVFormatContext *mOutput = nullptr;
    AVPacket *mPacket = nullptr;
};

}  // namespace

bool RecordingRepair::openElsewhere(const std::string &path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        return false;
    }
    const std::string self = std::to_string(getpid());
    bool open = false;
    DIR *processes = opendir("/proc");
    if (processes == nullptr) {
        return false;
    }
    while (const dirent *process = readdir(processes)) {
        const std::string pid = process->d_name;
        if (open || pid.empty() || pid.find_first_not_of("0123456789") != std::string::npos ||
            pid == self) {
            continue;
        }
        const std::string fdDir = "/proc/" + pid + "/fd";
        DIR *fds = opendir(fdDir.c_str());
        if (fds == nullptr) {
            continue;
        }
        while (const dirent *fd = readdir(fds)) {
            char target[PATH_MAX];
            const std::string link = fdDir + "/" + fd->d_name;
            const ssize_t length = readlink(link.c_str(), target, sizeof(target) - 1);
            if (length > 0) {
                target[length] = '\0';
                if (std::strcmp(target, resolved) == 0) {
                    open = true;
                    break;
                }
            }
        }
        closedir(fds);
    }
    closedir(processes);
    return open;
}

bool RecordingRepair::needsRepair(const std::string &path) {
    const RecordingInfo info = RecordingReader::read(path);
    return info.opened && info.container == "avi" && info.videoFrames() > 0 &&
           (info.declaredVideoFrames <= 0 || info.durationSeconds <= 0);
}

RepairResult RecordingRepair::repair(const std::string &path) {
    RepairResult result;
    const RecordingInfo before = RecordingReader::read(path);
    if (!before.opened) {
        result.error = before.error;
        return result;
    }
    if (!needsRepair(path)) {
        result.videoFrames = static_cast<int64_t>(before.videoFrames());
        result.durationSeconds = before.durationSeconds;
        return result;
    }
    const std::string temporary = path + ".repair";
    std::string error;
    {
        Remux remux;
        error = remux.copy(path, temporary);
    }
    if (error.empty() && std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = "cannot replace the file: " + std::string(std::strerror(errno));
    }
    if (!error.empty()) {
        std::remove(temporary.c_str());
        result.error = error;
        return result;
    }
    const RecordingInfo after = RecordingReader::read(path);
    result.repaired = true;
    result.videoFrames = static_cast<int64_t>(after.videoFrames());
    result.durationSeconds = after.durationSeconds;
    return result;
}

}  // namespace dvrspace
