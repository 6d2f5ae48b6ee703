#include "RecordingDVR.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "Describe.h"

using namespace dvrspace;

namespace dvrtest {

namespace {

// The transaction the current pool thread is serving.
thread_local uint32_t tCode = 0;

template <typename... A>
std::string describeAll(const A &...arguments) {
    std::string text;
    ((text += (text.empty() ? "" : ", ") + describe(arguments)), ...);
    return text;
}

}  // namespace

RecordingDVR::RecordingDVR(const Plan &plan, const std::string &transcriptPath)
    : mPlan(plan),
      mTranscript(open(transcriptPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}

RecordingDVR::~RecordingDVR() {
    if (mLateCallbacks.joinable()) {
        mLateCallbacks.join();
    }
    close(mTranscript);
}

android::status_t RecordingDVR::onTransact(uint32_t code, const android::Parcel &data,
                                           android::Parcel *reply, uint32_t flags) {
    tCode = code;
    return BnDVR::onTransact(code, data, reply, flags);
}

template <typename... A>
void RecordingDVR::record(const char *operation, const A &...arguments) {
    writeLine(std::to_string(tCode - android::IBinder::FIRST_CALL_TRANSACTION) + " " + operation +
              "(" + describeAll(arguments...) + ")");
}

void RecordingDVR::writeLine(const std::string &line) {
    const std::string text = line + "\n";
    // One write per line: lines of concurrent calls never interleave.
    if (write(mTranscript, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        _exit(3);
    }
}

DVRResult_e RecordingDVR::plannedResult(const char *operation) const {
    const auto result = mPlan.results.find(operation);
    return static_cast<DVRResult_e>(result != mPlan.results.end() ? result->second : 0);
}

int RecordingDVR::plannedId(const std::vector<int> &ids, int index) const {
    return index >= 0 && static_cast<size_t>(index) < ids.size() ? ids[index] : mPlan.outId;
}

template <typename T>
DVRResult_e RecordingDVR::fill(const char *operation, T *target, const T &value) {
    if (target == nullptr) {
        return DVR_INVALID_ARGUMENT;
    }
    *target = value;
    return plannedResult(operation);
}

void RecordingDVR::callBack(int index) {
    android::sp<IDVRCallback> callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        callback = mCallback;
    }
    if (callback == nullptr) {
        writeLine("callback none");
        return;
    }
    const int cbkId = mPlan.cbkId;
    writeLine("callback onRecordStart -> " +
              describe(callback->onRecordStart(cbkId, index, "/rec/start.ts")));
    writeLine("callback onRecordFinish -> " +
              describe(callback->onRecordFinish(cbkId, index, "/rec/finish.ts")));
    writeLine("callback onRecordError -> " + describe(callback->onRecordError(cbkId, index, 3)));
    writeLine("callback onRecordErrorSevere -> " +
              describe(callback->onRecordErrorSevere(cbkId, index, 4)));
    writeLine("callback onRecordAbnormal -> " +
              describe(callback->onRecordAbnormal(cbkId, index, 0)));
    char stamp[IDVRCallback::kStampStringCapacity] = {};
    const int stampResult = callback->getStampString(cbkId, index, stamp);
    writeLine("callback getStampString -> " + describe(stampResult) + " " + describe(stamp));
    char fileName[64] = {};
    const int nameResult = callback->fileNameGenerator(cbkId, index, fileName, sizeof fileName);
    writeLine("callback fileNameGenerator -> " + describe(nameResult) + " " + describe(fileName));
    writeLine("callback getStampString(null) -> " +
              describe(callback->getStampString(cbkId, index, nullptr)));
    writeLine("callback fileNameGenerator(null) -> " +
              describe(callback->fileNameGenerator(cbkId, index, nullptr, 64)));
}

DVRResult_e RecordingDVR::registerCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    record("registerCallback", pid, cbkId, type);
    return plannedResult("registerCallback");
}

DVRResult_e RecordingDVR::unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    record("unregisterCallback", pid, cbkId, type);
    return plannedResult("unregisterCallback");
}

DVRResult_e RecordingDVR::establishCallback(int pid, const android::sp<IDVRCallback> &callback) {
    record("establishCallback", pid, callback);
    std::lock_guard<std::mutex> guard(mLock);
    mCallback = callback;
    return plannedResult("establishCallback");
}

DVRResult_e RecordingDVR::destroyCallback(int pid) {
    record("destroyCallback", pid);
    std::lock_guard<std::mutex> guard(mLock);
    mCallback = nullptr;
    return plannedResult("destroyCallback");
}

DVRResult_e RecordingDVR::startRecordAll() {
    record("startRecordAll");
    return plannedResult("startRecordAll");
}

DVRResult_e RecordingDVR::stopRecordAll() {
    record("stopRecordAll");
    return plannedResult("stopRecordAll");
}

DVRResult_e RecordingDVR::applySettingsAll() {
    record("applySettingsAll");
    return plannedResult("applySettingsAll");
}

DVRResult_e RecordingDVR::abandonNewSettingsAll() {
    record("abandonNewSettingsAll");
    return plannedResult("abandonNewSettingsAll");
}

DVRResult_e RecordingDVR::factoryReset() {
    record("factoryReset");
    return plannedResult("factoryReset");
}

DVRResult_e RecordingDVR::setCameraSources(int count, const std::vector<int> &sources) {
    record("setCameraSources", count, sources);
    return plannedResult("setCameraSources");
}

DVRResult_e RecordingDVR::setAudioRecording(int enc_id, bool enable) {
    record("setAudioRecording", enc_id, enable);
    return plannedResult("setAudioRecording");
}

bool RecordingDVR::getAudioRecording(int enc_id) {
    record("getAudioRecording", enc_id);
    return mPlan.flag;
}

int RecordingDVR::getCameraCount() {
    record("getCameraCount");
    return plannedResult("getCameraCount");
}

DVRResult_e RecordingDVR::getCamera(int index, int *camId, QVDVRDeviceType_e *type) {
    record("getCamera", index, camId, type);
    if (camId == nullptr || type == nullptr) {
        return DVR_INVALID_ARGUMENT;
    }
    *camId = plannedId(mPlan.cameraIds, index);
    *type = mPlan.deviceType;
    return plannedResult("getCamera");
}

int RecordingDVR::getAudioCount() {
    record("getAudioCount");
    return plannedResult("getAudioCount");
}

DVRResult_e RecordingDVR::getAudio(int index, int *audId) {
    record("getAudio", index, audId);
    return fill("getAudio", audId, plannedId(mPlan.audioIds, index));
}

std::set<unsigned int> RecordingDVR::getSupportSamplingRate() {
    record("getSupportSamplingRate");
    return mPlan.samplingRates;
}

int RecordingDVR::getRecorderCount() {
    record("getRecorderCount");
    return plannedResult("getRecorderCount");
}

DVRResult_e RecordingDVR::getEncoder(int index, int *encId) {
    record("getEncoder", index, encId);
    return fill("getEncoder", encId, plannedId(mPlan.encoderIds, index));
}

DVRResult_e RecordingDVR::attachCamera(int enc_id, int cam_id) {
    record("attachCamera", enc_id, cam_id);
    return plannedResult("attachCamera");
}

DVRResult_e RecordingDVR::detachCamera(int enc_id) {
    record("detachCamera", enc_id);
    return plannedResult("detachCamera");
}

DVRResult_e RecordingDVR::getAttachedCamera(int enc_id, int *index) {
    record("getAttachedCamera", enc_id, index);
    return fill("getAttachedCamera", index, mPlan.outId);
}

DVRResult_e RecordingDVR::attachAudio(int enc_id, int aud_id) {
    record("attachAudio", enc_id, aud_id);
    return plannedResult("attachAudio");
}

DVRResult_e RecordingDVR::detachAudio(int enc_id) {
    record("detachAudio", enc_id);
    return plannedResult("detachAudio");
}

DVRResult_e RecordingDVR::getAttachedAudio(int enc_id, int *index) {
    record("getAttachedAudio", enc_id, index);
    return fill("getAttachedAudio", index, mPlan.outId);
}

DVRResult_e RecordingDVR::startRecord(int enc_id) {
    record("startRecord", enc_id);
    if (mPlan.callBackFromRecordCalls) {
        callBack(enc_id);
    }
    return plannedResult("startRecord");
}

DVRResult_e RecordingDVR::stopRecord(int enc_id) {
    record("stopRecord", enc_id);
    if (mPlan.callBackFromRecordCalls) {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mLateCallbacks.joinable()) {
            mLateCallbacks = std::thread([this, enc_id] { callBack(enc_id); });
        }
    }
    return plannedResult("stopRecord");
}

DVRResult_e RecordingDVR::autoNextFile(int enc_id, bool enable) {
    record("autoNextFile", enc_id, enable);
    return plannedResult("autoNextFile");
}

DVRResult_e RecordingDVR::nextFile(int enc_id, const char *fileName) {
    record("nextFile", enc_id, fileName);
    return plannedResult("nextFile");
}

DVRResult_e RecordingDVR::setStoragePath(int enc_id, const char *path) {
    record("setStoragePath", enc_id, path);
    return plannedResult("setStoragePath");
}

DVRResult_e RecordingDVR::setFileNameFormat(int enc_id, const char *format,
                                            const char *timeFormat) {
    record("setFileNameFormat", enc_id, format, timeFormat);
    return plannedResult("setFileNameFormat");
}

DVRResult_e RecordingDVR::applySettings(int enc_id) {
    record("applySettings", enc_id);
    return plannedResult("applySettings");
}

DVRResult_e RecordingDVR::abandonNewSettings(int enc_id) {
    record("abandonNewSettings", enc_id);
    return plannedResult("abandonNewSettings");
}

DVRResult_e RecordingDVR::takeSnapshot(int enc_id, SnapshotPA_t &snapshot) {
    record("takeSnapshot", enc_id, snapshot);
    return fill("takeSnapshot", &snapshot, mPlan.snapshot);
}

DVRResult_e RecordingDVR::setOutputFormat(int enc_id, DVRFileFormat_e format) {
    record("setOutputFormat", enc_id, format);
    return plannedResult("setOutputFormat");
}

DVRResult_e RecordingDVR::setBitRate(int enc_id, int bitRate) {
    record("setBitRate", enc_id, bitRate);
    return plannedResult("setBitRate");
}

DVRResult_e RecordingDVR::setFrameRate(int enc_id, int frameRate) {
    record("setFrameRate", enc_id, frameRate);
    return plannedResult("setFrameRate");
}

DVRResult_e RecordingDVR::setResolution(int enc_id, DVRResolution_e resolution) {
    record("setResolution", enc_id, resolution);
    return plannedResult("setResolution");
}

DVRResult_e RecordingDVR::setFileLength(int enc_id, int seconds) {
    record("setFileLength", enc_id, seconds);
    return plannedResult("setFileLength");
}

DVRResult_e RecordingDVR::setTimestamp(int enc_id, QVStampSettings_t *stamp) {
    record("setTimestamp", enc_id, stamp);
    return stamp == nullptr ? DVR_INVALID_ARGUMENT : plannedResult("setTimestamp");
}

DVRResult_e RecordingDVR::setSelfDefinedStamp(int enc_id, QVStampSettings_t *stamp) {
    record("setSelfDefinedStamp", enc_id, stamp);
    return stamp == nullptr ? DVR_INVALID_ARGUMENT : plannedResult("setSelfDefinedStamp");
}

bool RecordingDVR::isSettingChanged(int enc_id) {
    record("isSettingChanged", enc_id);
    return mPlan.flag;
}

DVRStm_e RecordingDVR::getCurrentState(int enc_id) {
    record("getCurrentState", enc_id);
    return static_cast<DVRStm_e>(plannedResult("getCurrentState"));
}

DVRResult_e RecordingDVR::getEncoderCapability(int enc_id, EncoderDeviceCaps_t *caps) {
    record("getEncoderCapability", enc_id, caps);
    return fill("getEncoderCapability", caps, mPlan.encoderCaps);
}

DVRFileFormat_e RecordingDVR::getOutputFormat(int enc_id) {
    record("getOutputFormat", enc_id);
    return static_cast<DVRFileFormat_e>(plannedResult("getOutputFormat"));
}

int RecordingDVR::getBitRate(int enc_id) {
    record("getBitRate", enc_id);
    return plannedResult("getBitRate") + enc_id;
}

int RecordingDVR::getFrameRate(int enc_id) {
    record("getFrameRate", enc_id);
    return plannedResult("getFrameRate") + enc_id;
}

DVRResolution_e RecordingDVR::getResolution(int enc_id) {
    record("getResolution", enc_id);
    return static_cast<DVRResolution_e>(plannedResult("getResolution"));
}

int RecordingDVR::getFileLength(int enc_id) {
    record("getFileLength", enc_id);
    return plannedResult("getFileLength") + enc_id;
}

DVRResult_e RecordingDVR::getTimestampSetting(int enc_id, QVStampSettings_t *stamp) {
    record("getTimestampSetting", enc_id, stamp);
    return fill("getTimestampSetting", stamp, mPlan.stamp);
}

DVRResult_e RecordingDVR::getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) {
    record("getSelfDefinedStampSetting", enc_id, stamp);
    return fill("getSelfDefinedStampSetting", stamp, mPlan.stamp);
}

DVRResult_e RecordingDVR::getCameraCapability(int cam_id, CameraDeviceCaps_t *caps) {
    record("getCameraCapability", cam_id, caps);
    return fill("getCameraCapability", caps, mPlan.cameraCaps);
}

DVRResult_e RecordingDVR::getAudioCapability(int aud_id, AudioDeviceCaps_t *caps) {
    record("getAudioCapability", aud_id, caps);
    return fill("getAudioCapability", caps, mPlan.audioCaps);
}

DVRResult_e RecordingDVR::setSamplingRate(int aud_id, unsigned int rate) {
    record("setSamplingRate", aud_id, rate);
    return plannedResult("setSamplingRate");
}

}  // namespace dvrtest
