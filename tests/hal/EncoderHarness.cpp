#include "EncoderHarness.h"

#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"

using namespace dvrspace;

namespace {

std::mutex gHarnessLock;
std::map<int, EncoderHarness *> gHarnesses;

}  // namespace

EncoderHarness::EncoderHarness(int index) {
    mEncoder = DVREncoderFactory::getFactory()->getEncoder(index, recordStart, recordFinish,
                                                           fileFinish, needData, error);
    mCamera.reset(DVRCameraDeviceFactory::getFactory()->createDevice(0));
    mAudio.reset(DVRAudioDeviceFactory::getFactory()->createDevice(0));
    if (mAudio != nullptr) {
        mAudioHandle = mAudio->open();
    }
    if (mEncoder != nullptr) {
        std::lock_guard<std::mutex> lock(gHarnessLock);
        gHarnesses[mEncoder->mId] = this;
    }
}

EncoderHarness::~EncoderHarness() {
    if (mEncoder != nullptr) {
        // A recording still running ends with callbacks into this harness.
        const int id = mEncoder->mId;
        DVREncoderFactory::getFactory()->releaseEncoder(mEncoder);
        std::lock_guard<std::mutex> lock(gHarnessLock);
        gHarnesses.erase(id);
    }
    DVREncoderFactory::getFactory()->releaseFactory();
}

RecordSettings_t EncoderHarness::settings(int format, int frameRate, int fileLength, bool audio,
                                          unsigned int rate) {
    RecordSettings_t settings;
    settings.outputFormat = static_cast<DVRFileFormat_e>(format);
    settings.bitRate = 2;
    settings.frameRate = frameRate;
    settings.width = -1;
    settings.height = -1;
    settings.fileLength = fileLength;
    settings.audioRecording = audio;
    settings.samplingRate = rate;
    return settings;
}

int EncoderHarness::record(const RecordSettings_t &settings, const std::string &firstFile,
                           std::chrono::milliseconds devicesAhead) {
    if (mEncoder == nullptr || mCamera == nullptr) {
        ADD_FAILURE() << "no encoder or camera";
        return -1000;
    }
    RecordSettings_t copy = settings;
    if (mAudio != nullptr && settings.audioRecording) {
        mAudio->setSamplingRate(settings.samplingRate);
    }
    int result = mEncoder->configure(&copy, *mCamera->getCaps());
    if (result != 0) {
        return result;
    }
    result = mEncoder->setFileName(firstFile.c_str());
    if (result != 0) {
        return result;
    }
    mCamera->start();
    if (mAudio != nullptr) {
        mAudio->start(mAudioHandle);
    }
    std::this_thread::sleep_for(devicesAhead);
    return mEncoder->start();
}

int EncoderHarness::stop() {
    mCamera->prepareStop();
    if (mAudio != nullptr) {
        mAudio->prepareStop(mAudioHandle);
    }
    const int result = mEncoder->stop();
    mCamera->stop();
    if (mAudio != nullptr) {
        mAudio->stop(mAudioHandle);
    }
    return result;
}

void EncoderHarness::setNextNames(std::vector<std::string> names) {
    std::lock_guard<std::mutex> lock(mLock);
    mNextNames = std::move(names);
}

void EncoderHarness::setFrameLimit(size_t frames) {
    std::lock_guard<std::mutex> lock(mLock);
    mFrameLimit = frames;
}

void EncoderHarness::setAudioChunkLimit(size_t chunks) {
    std::lock_guard<std::mutex> lock(mLock);
    mAudioChunkLimit = chunks;
}

void EncoderHarness::onError(std::function<void()> action) {
    std::lock_guard<std::mutex> lock(mLock);
    mOnError = std::move(action);
}

std::vector<EncoderEvent> EncoderHarness::events() {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents;
}

std::vector<EncoderEvent> EncoderHarness::fileEvents() {
    std::vector<EncoderEvent> found;
    for (auto &event : events()) {
        if (event.kind != "needVideo" && event.kind != "needAudio" && event.kind != "pushedVideo") {
            found.push_back(std::move(event));
        }
    }
    return found;
}

size_t EncoderHarness::count(const std::string &kind) {
    std::lock_guard<std::mutex> lock(mLock);
    size_t found = 0;
    for (const auto &event : mEvents) {
        found += event.kind == kind;
    }
    return found;
}

bool EncoderHarness::waitFor(const std::string &kind, size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, timeout, [&] {
        size_t found = 0;
        for (const auto &event : mEvents) {
            found += event.kind == kind;
        }
        return found >= n;
    });
}

size_t EncoderHarness::framesPushed() {
    std::lock_guard<std::mutex> lock(mLock);
    return mFramesPushed;
}

void EncoderHarness::add(EncoderEvent event) {
    std::lock_guard<std::mutex> lock(mLock);
    mEvents.push_back(std::move(event));
    mChanged.notify_all();
}

size_t EncoderHarness::audioChunksPushed() {
    std::lock_guard<std::mutex> lock(mLock);
    return mAudioChunksPushed;
}

EncoderHarness *EncoderHarness::find(int id) {
    std::lock_guard<std::mutex> lock(gHarnessLock);
    auto found = gHarnesses.find(id);
    return found == gHarnesses.end() ? nullptr : found->second;
}

void EncoderHarness::recordStart(int id, const char *file) {
    if (EncoderHarness *harness = find(id)) {
        harness->add({"start", file});
    }
}

void EncoderHarness::recordFinish(int id, const char *file) {
    if (EncoderHarness *harness = find(id)) {
        harness->add({"finish", file});
    }
}

void EncoderHarness::fileFinish(int id, const char *file) {
    EncoderHarness *harness = find(id);
    if (harness == nullptr) {
        return;
    }
    std::string next;
    {
        std::lock_guard<std::mutex> lock(harness->mLock);
        if (!harness->mNextNames.empty()) {
            next = harness->mNextNames.front();
            harness->mNextNames.erase(harness->mNextNames.begin());
        }
    }
    if (!next.empty()) {
        harness->mEncoder->setFileName(next.c_str());
    }
    harness->add({"fileFinish", file});
}

void EncoderHarness::needData(int id, ENCNeedDataType_e type) {
    EncoderHarness *harness = find(id);
    if (harness == nullptr) {
        return;
    }
    uint64_t stamp = 0;
    if (type == ENC_NEED_VIDEO) {
        harness->add({"needVideo", ""});
        {
            std::lock_guard<std::mutex> lock(harness->mLock);
            if (harness->mFramesPushed >= harness->mFrameLimit) {
                return;
            }
        }
        void *va[2] = {nullptr, nullptr};
        uint32_t pa[2] = {0, 0};
        if (harness->mCamera->getVideoFrame(va, pa, &stamp) == 0 && va[0] != nullptr) {
            harness->mEncoder->pushVideoFrame(pa, &stamp);
            {
                std::lock_guard<std::mutex> lock(harness->mLock);
                ++harness->mFramesPushed;
            }
            harness->add({"pushedVideo", ""});
        }
    } else {
        harness->add({"needAudio", ""});
        {
            std::lock_guard<std::mutex> lock(harness->mLock);
            if (harness->mAudioChunksPushed >= harness->mAudioChunkLimit) {
                return;
            }
        }
        void *data = nullptr;
        int length = 0;
        if (harness->mAudio != nullptr &&
            harness->mAudio->getAudioData(harness->mAudioHandle, &data, &length, &stamp) == 0 &&
            length > 0) {
            harness->mEncoder->pushAudioData(data, length, &stamp);
            std::lock_guard<std::mutex> lock(harness->mLock);
            ++harness->mAudioChunksPushed;
        }
    }
}

void EncoderHarness::error(int id, DVRErrorServerity_e severity, int code) {
    EncoderHarness *harness = find(id);
    if (harness == nullptr) {
        return;
    }
    EncoderEvent event{"error", ""};
    event.severity = severity;
    event.code = code;
    harness->add(event);
    std::function<void()> action;
    {
        std::lock_guard<std::mutex> lock(harness->mLock);
        action = harness->mOnError;
    }
    if (action) {
        action();
    }
}
