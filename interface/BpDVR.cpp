#include "BpDVR.h"

#include "DVRTransactions.h"
#include "RemoteMethod.h"

namespace dvrspace {

namespace {

// Each proxy method is this one line, so the code, the wire format and the
// failure result all follow from the IDVR declaration.
template <auto Method, typename... Given>
auto transact(android::IBinder *remote, Given &&...args) {
    using Transaction = DVRTransactionOf<Method>;
    return marshal::RemoteMethod<decltype(Method)>::call(
        remote, Transaction::code, Transaction::label, std::forward<Given>(args)...);
}

}  // namespace

BpDVR::BpDVR(const android::sp<android::IBinder> &impl) : BpInterface<IDVR>(impl) {}

DVRResult_e BpDVR::registerCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    return transact<&IDVR::registerCallback>(remote(), pid, cbkId, type);
}

DVRResult_e BpDVR::unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    return transact<&IDVR::unregisterCallback>(remote(), pid, cbkId, type);
}

DVRResult_e BpDVR::establishCallback(int pid, const android::sp<IDVRCallback> &callback) {
    return transact<&IDVR::establishCallback>(remote(), pid, callback);
}

DVRResult_e BpDVR::destroyCallback(int pid) {
    return transact<&IDVR::destroyCallback>(remote(), pid);
}

DVRResult_e BpDVR::startRecordAll() {
    return transact<&IDVR::startRecordAll>(remote());
}

DVRResult_e BpDVR::stopRecordAll() {
    return transact<&IDVR::stopRecordAll>(remote());
}

DVRResult_e BpDVR::applySettingsAll() {
    return transact<&IDVR::applySettingsAll>(remote());
}

DVRResult_e BpDVR::abandonNewSettingsAll() {
    return transact<&IDVR::abandonNewSettingsAll>(remote());
}

DVRResult_e BpDVR::factoryReset() {
    return transact<&IDVR::factoryReset>(remote());
}

DVRResult_e BpDVR::setCameraSources(int count, const std::vector<int> &sources) {
    return transact<&IDVR::setCameraSources>(remote(), count, sources);
}

DVRResult_e BpDVR::setAudioRecording(int enc_id, bool enable) {
    return transact<&IDVR::setAudioRecording>(remote(), enc_id, enable);
}

bool BpDVR::getAudioRecording(int enc_id) {
    return transact<&IDVR::getAudioRecording>(remote(), enc_id);
}

int BpDVR::getCameraCount() {
    return transact<&IDVR::getCameraCount>(remote());
}

DVRResult_e BpDVR::getCamera(int index, int *camId, QVDVRDeviceType_e *type) {
    return transact<&IDVR::getCamera>(remote(), index, camId, type);
}

int BpDVR::getAudioCount() {
    return transact<&IDVR::getAudioCount>(remote());
}

DVRResult_e BpDVR::getAudio(int index, int *audId) {
    return transact<&IDVR::getAudio>(remote(), index, audId);
}

std::set<unsigned int> BpDVR::getSupportSamplingRate() {
    return transact<&IDVR::getSupportSamplingRate>(remote());
}

int BpDVR::getRecorderCount() {
    return transact<&IDVR::getRecorderCount>(remote());
}

DVRResult_e BpDVR::getEncoder(int index, int *encId) {
    return transact<&IDVR::getEncoder>(remote(), index, encId);
}

DVRResult_e BpDVR::attachCamera(int enc_id, int cam_id) {
    return transact<&IDVR::attachCamera>(remote(), enc_id, cam_id);
}

DVRResult_e BpDVR::detachCamera(int enc_id) {
    return transact<&IDVR::detachCamera>(remote(), enc_id);
}

DVRResult_e BpDVR::getAttachedCamera(int enc_id, int *index) {
    return transact<&IDVR::getAttachedCamera>(remote(), enc_id, index);
}

DVRResult_e BpDVR::attachAudio(int enc_id, int aud_id) {
    return transact<&IDVR::attachAudio>(remote(), enc_id, aud_id);
}

DVRResult_e BpDVR::detachAudio(int enc_id) {
    return transact<&IDVR::detachAudio>(remote(), enc_id);
}

DVRResult_e BpDVR::getAttachedAudio(int enc_id, int *index) {
    return transact<&IDVR::getAttachedAudio>(remote(), enc_id, index);
}

DVRResult_e BpDVR::startRecord(int enc_id) {
    return transact<&IDVR::startRecord>(remote(), enc_id);
}

DVRResult_e BpDVR::stopRecord(int enc_id) {
    return transact<&IDVR::stopRecord>(remote(), enc_id);
}

DVRResult_e BpDVR::autoNextFile(int enc_id, bool enable) {
    return transact<&IDVR::autoNextFile>(remote(), enc_id, enable);
}

DVRResult_e BpDVR::nextFile(int enc_id, const char *fileName) {
    return transact<&IDVR::nextFile>(remote(), enc_id, fileName);
}

DVRResult_e BpDVR::setStoragePath(int enc_id, const char *path) {
    return transact<&IDVR::setStoragePath>(remote(), enc_id, path);
}

DVRResult_e BpDVR::setFileNameFormat(int enc_id, const char *format, const char *timeFormat) {
    return transact<&IDVR::setFileNameFormat>(remote(), enc_id, format, timeFormat);
}

DVRResult_e BpDVR::applySettings(int enc_id) {
    return transact<&IDVR::applySettings>(remote(), enc_id);
}

DVRResult_e BpDVR::abandonNewSettings(int enc_id) {
    return transact<&IDVR::abandonNewSettings>(remote(), enc_id);
}

DVRResult_e BpDVR::takeSnapshot(int enc_id, SnapshotPA_t &snapshot) {
    return transact<&IDVR::takeSnapshot>(remote(), enc_id, snapshot);
}

DVRResult_e BpDVR::setOutputFormat(int enc_id, DVRFileFormat_e format) {
    return transact<&IDVR::setOutputFormat>(remote(), enc_id, format);
}

DVRResult_e BpDVR::setBitRate(int enc_id, int bitRate) {
    return transact<&IDVR::setBitRate>(remote(), enc_id, bitRate);
}

DVRResult_e BpDVR::setFrameRate(int enc_id, int frameRate) {
    return transact<&IDVR::setFrameRate>(remote(), enc_id, frameRate);
}

DVRResult_e BpDVR::setResolution(int enc_id, DVRResolution_e resolution) {
    return transact<&IDVR::setResolution>(remote(), enc_id, resolution);
}

DVRResult_e BpDVR::setFileLength(int enc_id, int seconds) {
    return transact<&IDVR::setFileLength>(remote(), enc_id, seconds);
}

DVRResult_e BpDVR::setTimestamp(int enc_id, QVStampSettings_t *stamp) {
    return transact<&IDVR::setTimestamp>(remote(), enc_id, stamp);
}

DVRResult_e BpDVR::setSelfDefinedStamp(int enc_id, QVStampSettings_t *stamp) {
    return transact<&IDVR::setSelfDefinedStamp>(remote(), enc_id, stamp);
}

bool BpDVR::isSettingChanged(int enc_id) {
    return transact<&IDVR::isSettingChanged>(remote(), enc_id);
}

DVRStm_e BpDVR::getCurrentState(int enc_id) {
    return transact<&IDVR::getCurrentState>(remote(), enc_id);
}

DVRResult_e BpDVR::getEncoderCapability(int enc_id, EncoderDeviceCaps_t *caps) {
    return transact<&IDVR::getEncoderCapability>(remote(), enc_id, caps);
}

DVRFileFormat_e BpDVR::getOutputFormat(int enc_id) {
    return transact<&IDVR::getOutputFormat>(remote(), enc_id);
}

int BpDVR::getBitRate(int enc_id) {
    return transact<&IDVR::getBitRate>(remote(), enc_id);
}

int BpDVR::getFrameRate(int enc_id) {
    return transact<&IDVR::getFrameRate>(remote(), enc_id);
}

DVRResolution_e BpDVR::getResolution(int enc_id) {
    return transact<&IDVR::getResolution>(remote(), enc_id);
}

int BpDVR::getFileLength(int enc_id) {
    return transact<&IDVR::getFileLength>(remote(), enc_id);
}

DVRResult_e BpDVR::getTimestampSetting(int enc_id, QVStampSettings_t *stamp) {
    return transact<&IDVR::getTimestampSetting>(remote(), enc_id, stamp);
}

DVRResult_e BpDVR::getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) {
    return transact<&IDVR::getSelfDefinedStampSetting>(remote(), enc_id, stamp);
}

DVRResult_e BpDVR::getCameraCapability(int cam_id, CameraDeviceCaps_t *caps) {
    return transact<&IDVR::getCameraCapability>(remote(), cam_id, caps);
}

DVRResult_e BpDVR::getAudioCapability(int aud_id, AudioDeviceCaps_t *caps) {
    return transact<&IDVR::getAudioCapability>(remote(), aud_id, caps);
}

DVRResult_e BpDVR::setSamplingRate(int aud_id, unsigned int rate) {
    return transact<&IDVR::setSamplingRate>(remote(), aud_id, rate);
}

}  // namespace dvrspace
