#include "DVRSimEncoder.h"

#include <sys/stat.h>

#include <cstring>

#include "DVRHalLog.h"
#include "DVRSimulator.h"

namespace dvrspace {

namespace {

bool fileExists(const std::string &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

bool validSize(int value, int maximum) {
    return value >= 16 && value <= maximum && value % 2 == 0;
}

}  // namespace

DVRSimEncoder::DVRSimEncoder(int id, const DVREncoderSimConfig &config,
                             const DVREncoderCallbacks &callbacks, DVRPhysicalArena *arena)
    : DVREncoderHAL(id), mConfig(config), mCallbacks(callbacks), mArena(arena) {}

DVRSimEncoder::~DVRSimEncoder() {
    bool playing = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        playing = mPlaying;
    }
    if (playing) {
        stop();
    }
    joinThreads();
}

int DVRSimEncoder::configure(RecordSettings_t *settings, const DVRCameraCaps_t &cameraCaps) {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::Configure);
    if (forced != 0) {
        return forced;
    }
    if (settings == nullptr) {
        HAL_LOGE("Encoder %d: no settings\n", mId);
        return -2;
    }
    const EncoderCapability_t &caps = mConfig.capability;
    const RecordSettings_t &s = *settings;
    const char *problem = nullptr;
    if (cameraCaps.format != DVR_VIDEO_FORMAT_NV12) {
        problem = "camera format is not NV12";
    } else if (cameraCaps.width <= 0 || cameraCaps.height <= 0 || cameraCaps.width % 2 != 0 ||
               cameraCaps.height % 2 != 0 || cameraCaps.stride < cameraCaps.width) {
        problem = "camera size or stride";
    } else if (s.outputFormat != DVR_FILE_FORMAT_AVI && s.outputFormat != DVR_FILE_FORMAT_TS) {
        problem = "output format";
    } else if (s.bitRate < caps.min_bit_rate || s.bitRate > caps.max_bit_rate || s.bitRate <= 0) {
        problem = "bit rate";
    } else if (s.frameRate < caps.min_frame_rate || s.frameRate > caps.max_frame_rate ||
               s.frameRate <= 0) {
        problem = "frame rate";
    } else if (s.fileLength < caps.min_file_length || s.fileLength > caps.max_file_length ||
               s.fileLength <= 0) {
        problem = "file length";
    } else if (s.audioRecording && mConfig.samplingRates.count(s.samplingRate) == 0) {
        problem = "sampling rate";
    }
    const bool followCamera = s.width == -1 || s.height == -1;
    const int width = followCamera ? cameraCaps.width : s.width;
    const int height = followCamera ? cameraCaps.height : s.height;
    if (problem == nullptr &&
        (!validSize(width, caps.max_width) || !validSize(height, caps.max_height))) {
        problem = "resolution";
    }
    if (problem != nullptr) {
        HAL_LOGE(
            "Encoder %d: unsupported %s (format %d, %d Mbps, %d fps, %dx%d, %d s, audio %d at "
            "%u Hz; camera %dx%d stride %d format %d)\n",
            mId, problem, s.outputFormat, s.bitRate, s.frameRate, s.width, s.height, s.fileLength,
            s.audioRecording, s.samplingRate, cameraCaps.width, cameraCaps.height,
            cameraCaps.stride, cameraCaps.format);
        return -2;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mPlaying) {
        HAL_LOGE("Encoder %d: configure while playing\n", mId);
        return -3;
    }
    DVRMediaFormat format;
    format.container = s.outputFormat;
    format.inputWidth = cameraCaps.width;
    format.inputHeight = cameraCaps.height;
    format.inputStride = cameraCaps.stride;
    format.width = width;
    format.height = height;
    format.frameRate = s.frameRate;
    format.bitRateMbps = s.bitRate;
    format.audio = s.audioRecording;
    format.sampleRate = static_cast<int>(s.samplingRate);
    format.channels = mConfig.audioChannels;
    format.preset = mConfig.preset;
    format.tune = mConfig.tune;
    format.threads = mConfig.threads;
    format.keyFrameInterval = s.frameRate * mConfig.keyFrameSeconds;
    mFormat = format;
    mFileLength = s.fileLength;
    mConfigured = true;
    return 0;
}

int DVRSimEncoder::setFileName(const char *path) {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::SetFileName);
    if (forced != 0) {
        return forced;
    }
    if (path == nullptr || path[0] == '\0' ||
        std::strlen(path) > static_cast<size_t>(mConfig.capability.file_name_length_limit)) {
        HAL_LOGE("Encoder %d: invalid file name\n", mId);
        return -2;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mNextName = path;
    mNextNameFresh = true;
    return 0;
}

int DVRSimEncoder::isPlaying() {
    if (DVRSimulator::instance().encoderNeverPlaying(mId)) {
        return 0;
    }
    std::lock_guard<std::mutex> lock(mLock);
    return mPlaying ? 1 : 0;
}

int DVRSimEncoder::start() {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::Start);
    if (forced != 0) {
        return forced;
    }
    DVRMediaFormat format;
    int fileLength = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const char *problem = !mConfigured        ? "not configured"
                              : mPlaying          ? "already playing"
                              : mSuspended        ? "suspended"
                              : mNextName.empty() ? "no file name"
                                                  : nullptr;
        if (problem != nullptr) {
            HAL_LOGE("Encoder %d: cannot start: %s\n", mId, problem);
            return -1;
        }
        format = mFormat;
        fileLength = mFileLength;
    }
    joinThreads();
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        std::string error;
        if (mWriter.open(format, &error) != 0) {
            HAL_LOGE("Encoder %d: cannot start: %s\n", mId, error.c_str());
            return -1;
        }
        mWriterError = 0;
        mSlotsPerFile = static_cast<int64_t>(format.frameRate) * fileLength;
        mPictureHeld = false;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mPlaying = true;
    mStopRequested = false;
    mFinalized = false;
    mWorkerDone = false;
    mPendingError = 0;
    mRunning = Callback::None;
    mFileName.clear();
    mFileAnnounced = false;
    mWorker = std::thread(&DVRSimEncoder::run, this);
    mWorkerId = mWorker.get_id();
    return 0;
}

int DVRSimEncoder::stop() {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::Stop);
    std::unique_lock<std::mutex> lock(mLock);
    if (!mPlaying) {
        HAL_LOGW("Encoder %d: stop while not playing\n", mId);
        return forced != 0 ? forced : -1;
    }
    mStopRequested = true;
    mWake.notify_all();
    // The service stops from within the error callback (on another thread,
    // which the callback waits for): waiting for the worker would never end.
    const bool finishHere = mRunning == Callback::Error || std::this_thread::get_id() == mWorkerId;
    if (finishHere) {
        lock.unlock();
        finishRecording(false);
        lock.lock();
    } else {
        mWake.wait(lock, [this] { return mWorkerDone; });
        lock.unlock();
        mWorker.join();
        lock.lock();
    }
    mPlaying = false;
    const std::string lastFile = mFileName;
    lock.unlock();

    DVRSimulator::LateCallback late{};
    if (DVRSimulator::instance().takeLateCallback(mId, &late)) {
        if (mLateCallback.joinable()) {
            mLateCallback.join();
        }
        mLateCallback = std::thread([this, late, lastFile] {
            std::this_thread::sleep_for(std::chrono::milliseconds(late.delayMs));
            switch (late.kind) {
                case DVRSimLateCallback::NeedVideo:
                    mCallbacks.needData(mId, ENC_NEED_VIDEO);
                    break;
                case DVRSimLateCallback::NeedAudio:
                    mCallbacks.needData(mId, ENC_NEED_AUDIO);
                    break;
                case DVRSimLateCallback::FileFinish:
                    mCallbacks.fileFinish(mId, lastFile.c_str());
                    break;
                case DVRSimLateCallback::RecordFinish:
                    mCallbacks.recordFinish(mId, lastFile.c_str());
                    break;
            }
        });
    }
    return forced;
}

int DVRSimEncoder::requestKeyFrame() {
    std::lock_guard<std::mutex> writerLock(mWriterLock);
    mWriter.requestKeyFrame();
    return 0;
}

int DVRSimEncoder::pushVideoFrame(const uint32_t framePA[2], uint64_t *timestamp) {
    if (framePA == nullptr) {
        return -2;
    }
    DVRMediaFormat format;
    {
        std::lock_guard<std::mutex> lock(mLock);
        // A picture that arrives once a stop was asked for would only delay
        // it by an encode: the file ends with the pictures before.
        if (!mPlaying || mFinalized || mStopRequested) {
            return -1;
        }
        format = mFormat;
    }
    const size_t lumaBytes = static_cast<size_t>(format.inputStride) * format.inputHeight;
    const void *luma = mArena != nullptr ? mArena->translate(framePA[0], lumaBytes) : nullptr;
    const void *chroma = mArena != nullptr ? mArena->translate(framePA[1], lumaBytes / 2) : nullptr;
    if (luma == nullptr || chroma == nullptr) {
        HAL_LOGE("Encoder %d: frame at unknown physical address 0x%08x/0x%08x\n", mId, framePA[0],
                 framePA[1]);
        std::lock_guard<std::mutex> lock(mLock);
        mPendingError = kBadAddress;
        return kBadAddress;
    }
    // Fast pacing records every picture it gets, one per frame period,
    // whatever the camera's rate: its time is the request schedule's.
    const bool realTime = DVRSimulator::instance().pacing() == DVRSimPacing::RealTime;
    const uint64_t captureUs = realTime && timestamp != nullptr ? *timestamp : 0;
    std::lock_guard<std::mutex> writerLock(mWriterLock);
    if (mWriterError != 0 || !mWriter.hasFile() || mPictureHeld) {
        return -1;
    }
    if (mWriter.belongsToNextFile(captureUs, mSlotsPerFile)) {
        // The roll-over calls the service back, which must not happen inside
        // its own need-data callback: keep the picture for the worker.
        const auto *lumaPlane = static_cast<const uint8_t *>(luma);
        const auto *chromaPlane = static_cast<const uint8_t *>(chroma);
        mHeldPicture.assign(lumaPlane, lumaPlane + lumaBytes);
        mHeldPicture.insert(mHeldPicture.end(), chromaPlane, chromaPlane + lumaBytes / 2);
        mHeldCaptureUs = captureUs;
        mPictureHeld = true;
        return 0;
    }
    return writePicture(static_cast<const uint8_t *>(luma), static_cast<const uint8_t *>(chroma),
                        captureUs);
}

int DVRSimEncoder::writePicture(const uint8_t *luma, const uint8_t *chroma, uint64_t captureUs) {
    const int result = mWriter.writeVideo(luma, chroma, captureUs);
    if (result < 0) {
        mWriterError = result;
    }
    return result < 0 ? result : 0;
}

void DVRSimEncoder::writeHeldPicture() {
    std::lock_guard<std::mutex> writerLock(mWriterLock);
    if (!mPictureHeld) {
        return;
    }
    mPictureHeld = false;
    if (mWriterError == 0 && mWriter.hasFile()) {
        const size_t lumaBytes = mHeldPicture.size() * 2 / 3;
        writePicture(mHeldPicture.data(), mHeldPicture.data() + lumaBytes, mHeldCaptureUs);
    }
}

void DVRSimEncoder::logFileEnd(const std::string &name) {
    const DVRMediaFileStats &stats = mWriter.fileStats();
    HAL_LOGI("Encoder %d: %s: %lld frames written, %lld frame slots dropped\n", mId, name.c_str(),
             static_cast<long long>(stats.framesWritten),
             static_cast<long long>(stats.slotsDropped));
}

bool DVRSimEncoder::starve(int64_t videoRequests) {
    const DVRSimulator::Starvation starvation = DVRSimulator::instance().starvation(mId);
    if (starvation.everyFrames <= 0 || videoRequests % starvation.everyFrames != 0) {
        return true;
    }
    std::unique_lock<std::mutex> lock(mLock);
    mWake.wait_for(lock, std::chrono::milliseconds(starvation.delayMs),
                   [this] { return mStopRequested; });
    return !mStopRequested;
}

int DVRSimEncoder::pushAudioData(void *data, int length, uint64_t *timestamp) {
    if (data == nullptr || length < 0) {
        return -2;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!mPlaying || mFinalized) {
            return -1;
        }
        if (!mFormat.audio) {
            return 0;  // recording without audio: the chunk is not wanted
        }
    }
    std::lock_guard<std::mutex> writerLock(mWriterLock);
    if (mWriterError != 0 || !mWriter.hasFile()) {
        return -1;
    }
    const int result = mWriter.writeAudio(data, length, timestamp != nullptr ? *timestamp : 0);
    if (result < 0) {
        mWriterError = result;
    }
    return result < 0 ? result : 0;
}

int DVRSimEncoder::getCapability(EncoderCapability_t *capability) {
    if (capability == nullptr) {
        return -2;
    }
    *capability = mConfig.capability;
    return 0;
}

std::set<unsigned int> DVRSimEncoder::getSupportedSamplingRates() {
    return mConfig.samplingRates;
}

int DVRSimEncoder::suspend() {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::Suspend);
    if (forced != 0) {
        return forced;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mPlaying) {
        HAL_LOGE("Encoder %d: suspend while playing\n", mId);
        return -1;
    }
    mSuspended = true;
    return 0;
}

int DVRSimEncoder::resume() {
    const int forced = DVRSimulator::instance().encoderResult(mId, DVRSimEncoderOp::Resume);
    if (forced != 0) {
        return forced;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mSuspended = false;
    return 0;
}

void DVRSimEncoder::run() {
    DVRMediaFormat format;
    {
        std::lock_guard<std::mutex> lock(mLock);
        format = mFormat;
    }
    startNextFile();

    const bool realTime = DVRSimulator::instance().pacing() == DVRSimPacing::RealTime;
    const auto start = std::chrono::steady_clock::now();
    Schedule schedule;
    Schedule audio;
    while (true) {
        const int64_t videoDue = nextVideoDue(schedule, format.frameRate, start);
        const int64_t audioDue = format.audio ? nextAudioDue(audio, start) : 0;
        const bool video = !format.audio || videoDue <= audioDue;
        if (!waitUntilDue(video ? videoDue : audioDue, start)) {
            break;
        }
        if (!video) {
            if (!requestAudio(&audio, audioDue)) {
                break;
            }
            announceFirstFile();
        } else {
            {
                std::lock_guard<std::mutex> writerLock(mWriterLock);
                schedule.captureBeforeLastUs = mWriter.lastCaptureUs();
            }
            schedule.lastDueUs = videoDue;
            const int64_t videoRequests = ++schedule.requests;
            if (!invoke(Callback::NeedData, [&] { mCallbacks.needData(mId, ENC_NEED_VIDEO); })) {
                break;
            }
            // A picture past the file's time opens the next file: a stop
            // before then completes the full file as the last one.
            bool pictureHeld = false;
            {
                std::lock_guard<std::mutex> writerLock(mWriterLock);
                pictureHeld = mPictureHeld;
            }
            if (pictureHeld) {
                // Audio captured before the next file's first picture goes
                // into this file.
                bool stopped = false;
                int64_t due = 0;
                while (format.audio && !stopped && (due = nextAudioDue(audio, start)) <= videoDue) {
                    stopped = !requestAudio(&audio, due);
                }
                if (stopped || !rollOver()) {
                    break;
                }
                writeHeldPicture();
            }
            announceFirstFile();
            int badAddress = 0;
            {
                std::lock_guard<std::mutex> lock(mLock);
                std::swap(badAddress, mPendingError);
            }
            if (badAddress != 0) {
                invoke(Callback::Error,
                       [&] { mCallbacks.error(mId, DVR_ERROR_NORMAL, badAddress); });
            }
            DVRSimulator::EncoderError injected{};
            if (DVRSimulator::instance().takeEncoderError(mId, static_cast<int>(videoRequests),
                                                          &injected)) {
                invoke(Callback::Error, [&] {
                    mCallbacks.error(mId, static_cast<DVRErrorServerity_e>(injected.severity),
                                     injected.code);
                });
            }
            if (realTime && !starve(videoRequests)) {
                break;
            }
        }
        const int failure = writerError();
        if (failure != 0) {
            failRecording(failure);
            break;
        }
    }
    finishRecording(true);
}

int64_t DVRSimEncoder::nextVideoDue(const Schedule &schedule, int frameRate,
                                    std::chrono::steady_clock::time_point start) {
    const int64_t periodUs = 1000000 / frameRate;
    if (DVRSimulator::instance().pacing() != DVRSimPacing::RealTime) {
        return schedule.requests * 1000000 / frameRate;
    }
    if (schedule.requests == 0) {
        return 0;
    }
    uint64_t lastCaptureUs = 0;
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        lastCaptureUs = mWriter.lastCaptureUs();
    }
    const int64_t startUs =
        std::chrono::duration_cast<std::chrono::microseconds>(start.time_since_epoch()).count();
    const int64_t nextCaptureUs = static_cast<int64_t>(lastCaptureUs) + periodUs - startUs;
    const int64_t afterLastDue = schedule.lastDueUs + periodUs;
    // Follow the camera's clock (the simulated camera stamps with this
    // process's steady clock): ask for the next picture as soon as it is
    // captured, at once while the camera still holds pictures taken since
    // the last one, so a late encoder drains the camera's queue instead of
    // staying behind it. When the last request brought no new picture, or
    // without usable stamps, one period after the last request.
    const bool newPicture = lastCaptureUs != 0 && lastCaptureUs != schedule.captureBeforeLastUs;
    const bool sameClock =
        nextCaptureUs > afterLastDue - 10000000 && nextCaptureUs < afterLastDue + 10000000;
    return newPicture && sameClock ? nextCaptureUs : afterLastDue;
}

int64_t DVRSimEncoder::nextAudioDue(const Schedule &schedule,
                                    std::chrono::steady_clock::time_point start) {
    const int64_t chunkUs = static_cast<int64_t>(mConfig.audioChunkMs) * 1000;
    const int64_t afterLastDue = schedule.requests == 0 ? chunkUs : schedule.lastDueUs + chunkUs;
    if (DVRSimulator::instance().pacing() != DVRSimPacing::RealTime || schedule.requests == 0) {
        return afterLastDue;
    }
    uint64_t lastCaptureUs = 0;
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        lastCaptureUs = mWriter.lastAudioCaptureUs();
    }
    const int64_t startUs =
        std::chrono::duration_cast<std::chrono::microseconds>(start.time_since_epoch()).count();
    // The next chunk is complete two chunk periods after the last one began;
    // a millisecond more keeps a request from arriving a hair early and
    // sending the service into its 10-ms retry loop.
    const int64_t nextCompleteUs =
        static_cast<int64_t>(lastCaptureUs) + 2 * chunkUs + 1000 - startUs;
    // Follow the input's clock like the camera's: the input buffers what it
    // captured since the channel started it (before this encoder started,
    // and while a busy machine held the worker up), so ask again at once
    // while captured chunks wait; a schedule of its own would keep the audio
    // behind the pictures by that backlog for the whole recording, and a
    // stop would cut the audio that much before the last picture.
    const bool newChunk = lastCaptureUs != 0 && lastCaptureUs != schedule.captureBeforeLastUs;
    const bool sameClock =
        nextCompleteUs > afterLastDue - 10000000 && nextCompleteUs < afterLastDue + 10000000;
    return newChunk && sameClock ? nextCompleteUs : afterLastDue;
}

bool DVRSimEncoder::requestAudio(Schedule *schedule, int64_t dueUs) {
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        schedule->captureBeforeLastUs = mWriter.lastAudioCaptureUs();
    }
    schedule->lastDueUs = dueUs;
    ++schedule->requests;
    return invoke(Callback::NeedData, [&] { mCallbacks.needData(mId, ENC_NEED_AUDIO); });
}

bool DVRSimEncoder::invoke(Callback kind, const std::function<void()> &call,
                           bool evenWhenStopping) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStopRequested && !evenWhenStopping) {
            return false;
        }
        mRunning = kind;
    }
    DVRSimulator::setInsideNeedData(kind == Callback::NeedData);
    call();
    DVRSimulator::setInsideNeedData(false);
    std::lock_guard<std::mutex> lock(mLock);
    mRunning = Callback::None;
    return true;
}

bool DVRSimEncoder::waitUntilDue(int64_t dueUs, std::chrono::steady_clock::time_point start) {
    std::unique_lock<std::mutex> lock(mLock);
    if (DVRSimulator::instance().pacing() == DVRSimPacing::RealTime) {
        mWake.wait_until(lock, start + std::chrono::microseconds(dueUs),
                         [this] { return mStopRequested; });
    }
    return !mStopRequested;
}

std::string DVRSimEncoder::uniqueName(const std::string &path) const {
    if (!fileExists(path)) {
        return path;
    }
    const size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        dot = path.size();
    }
    for (int number = 1;; ++number) {
        std::string candidate =
            path.substr(0, dot) + "_" + std::to_string(number) + path.substr(dot);
        if (!fileExists(candidate)) {
            return candidate;
        }
    }
}

void DVRSimEncoder::startNextFile() {
    std::string requested;
    {
        std::lock_guard<std::mutex> lock(mLock);
        requested = mNextName;
        mNextNameFresh = false;
    }
    // Never overwrite: an existing file, and so the previous file when no new
    // name came, gets a numbered sibling instead.
    const std::string name = uniqueName(requested);
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        mWriter.startFile(name);
    }
    std::lock_guard<std::mutex> lock(mLock);
    mFileName = name;
}

void DVRSimEncoder::announceFirstFile() {
    std::string name;
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        std::lock_guard<std::mutex> lock(mLock);
        if (mFileAnnounced || !mWriter.fileCreated()) {
            return;
        }
        mFileAnnounced = true;
        name = mFileName;
    }
    // Reported even when a stop came meanwhile: its record-finish follows.
    invoke(
        Callback::RecordStart, [&] { mCallbacks.recordStart(mId, name.c_str()); }, true);
}

bool DVRSimEncoder::rollOver() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStopRequested) {
            return false;  // the file is complete; stop finishes it as the last one
        }
    }
    int result = 0;
    std::string finished;
    {
        std::lock_guard<std::mutex> lock(mLock);
        finished = mFileName;
    }
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        result = mWriter.closeFile(false);
        if (result < 0) {
            mWriterError = result;
        } else {
            logFileEnd(finished);
        }
    }
    if (result < 0) {
        HAL_LOGE("Encoder %d: cannot complete %s: %s\n", mId, finished.c_str(),
                 std::strerror(-result));
        failRecording(result);
        return false;
    }
    if (!invoke(Callback::FileFinish, [&] { mCallbacks.fileFinish(mId, finished.c_str()); })) {
        return false;
    }
    // The service announces the next file itself when a file finishes.
    startNextFile();
    return true;
}

void DVRSimEncoder::failRecording(int code) {
    std::string name;
    {
        std::lock_guard<std::mutex> lock(mLock);
        name = mFileName;
    }
    HAL_LOGE("Encoder %d: writing %s failed: %s\n", mId, name.c_str(), std::strerror(-code));
    invoke(Callback::Error, [&] { mCallbacks.error(mId, DVR_ERROR_SEVERE, code); });
    std::unique_lock<std::mutex> lock(mLock);
    mWake.wait(lock, [this] { return mStopRequested; });
}

int DVRSimEncoder::writerError() {
    std::lock_guard<std::mutex> writerLock(mWriterLock);
    return mWriterError;
}

void DVRSimEncoder::finishRecording(bool onWorker) {
    bool report = false;
    std::string name;
    {
        std::lock_guard<std::mutex> writerLock(mWriterLock);
        bool alreadyFinished = false;
        {
            std::lock_guard<std::mutex> lock(mLock);
            alreadyFinished = mFinalized;
            report = !mFinalized && mFileAnnounced;
            mFinalized = true;
            name = mFileName;
        }
        if (!alreadyFinished) {
            const bool wasOpen = mWriter.fileCreated();
            const int result = mWriter.closeFile(true);
            if (wasOpen && result < 0) {
                // No error callback now: the service is inside stop() and
                // would wait for itself.
                HAL_LOGE("Encoder %d: cannot complete %s: %s\n", mId, name.c_str(),
                         std::strerror(-result));
            } else if (wasOpen) {
                logFileEnd(name);
            }
            mPictureHeld = false;
            mWriter.close();
        }
    }
    if (report) {
        if (onWorker) {
            invoke(
                Callback::RecordFinish, [&] { mCallbacks.recordFinish(mId, name.c_str()); }, true);
        } else {
            mCallbacks.recordFinish(mId, name.c_str());
        }
    }
    if (onWorker) {
        std::lock_guard<std::mutex> lock(mLock);
        mWorkerDone = true;
        mWake.notify_all();
    }
}

void DVRSimEncoder::joinThreads() {
    if (mWorker.joinable() && mWorker.get_id() != std::this_thread::get_id()) {
        mWorker.join();
    }
    if (mLateCallback.joinable() && mLateCallback.get_id() != std::this_thread::get_id()) {
        mLateCallback.join();
    }
}

}  // namespace dvrspace
