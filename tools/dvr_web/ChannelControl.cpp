#include "ChannelControl.h"

#include <unistd.h>

#include "ChannelProbe.h"
#include "EnumNames.h"
#include "RequestGuard.h"
#include "ResultExplainer.h"

using dvrctl::ChannelProbe;
using dvrctl::EnumNames;
using nlohmann::json;

namespace dvrweb {

namespace {

constexpr int kHttpOk = 200;
constexpr int kHttpBadRequest = 400;
constexpr int kHttpNotFound = 404;
constexpr int kHttpConflict = 409;
constexpr int kHttpBadGateway = 502;

json answer(int status, const std::string &error, const std::string &reason) {
    return {{"status", status}, {"error", error}, {"reason", reason}};
}

json unknownChannel(int encId) {
    return answer(kHttpNotFound, "unknown channel",
                  "no channel has encoder id " + std::to_string(encId));
}

json refused(const std::string &reason) {
    return answer(kHttpConflict, "refused", reason);
}

// A result code as the answer: 0 done, else explained with its situation.
json outcome(dvrspace::IDVR &service, int encId, const std::string &operation, int result) {
    if (result == 0) {
        return {{"status", kHttpOk}, {"result", 0}};
    }
    const std::string reason = dvrguard::ResultExplainer::explain(
        result, ChannelProbe(service, encId).situation(operation));
    const int status = result == -2   ? kHttpBadRequest
                       : result == -3 ? kHttpConflict
                                      : kHttpBadGateway;
    json failed = answer(status, "failed", reason);
    failed["result"] = result;
    return failed;
}

json stamp(bool got, const dvrspace::QVStampSettings_t &settings, bool withInterval) {
    if (!got) {
        return nullptr;
    }
    json object = {{"enabled", settings.enabled}, {"x", settings.x}, {"y", settings.y}};
    if (withInterval) {
        object["intervalMs"] = settings.interval;
    }
    return object;
}

// Only ids the service listed reach getAttachedCamera and getAttachedAudio:
// it aborts on an unknown one.
json describe(dvrspace::IDVR &service, int encId) {
    const int state = service.getCurrentState(encId);
    json channel = {{"encId", encId},     {"state", EnumNames::states().name(state)},
                    {"stateCode", state}, {"camId", nullptr},
                    {"audId", nullptr},   {"widthPx", nullptr},
                    {"heightPx", nullptr}};
    int cameraIndex = 0;
    int camId = 0;
    auto type = dvrspace::QV_DVR_DEVICE_TYPE_UNKNOWN;
    if (service.getAttachedCamera(encId, &cameraIndex) == 0 &&
        service.getCamera(cameraIndex, &camId, &type) == 0) {
        channel["camId"] = camId;
        dvrspace::CameraDeviceCaps_t caps{};
        if (service.getCameraCapability(camId, &caps) == 0) {
            channel["widthPx"] = caps.width;
            channel["heightPx"] = caps.height;
        }
    }
    int audioIndex = 0;
    int audId = 0;
    if (service.getAttachedAudio(encId, &audioIndex) == 0 &&
        service.getAudio(audioIndex, &audId) == 0) {
        channel["audId"] = audId;
    }
    const int format = service.getOutputFormat(encId);
    channel["audioRecording"] = service.getAudioRecording(encId);
    channel["format"] = EnumNames::fileFormats().name(format);
    channel["bitRateMbps"] = service.getBitRate(encId);
    channel["frameRateFps"] = service.getFrameRate(encId);
    channel["resolution"] = EnumNames::resolutions().name(service.getResolution(encId));
    channel["fileLengthS"] = service.getFileLength(encId);
    dvrspace::QVStampSettings_t settings{};
    channel["timestamp"] =
        stamp(service.getTimestampSetting(encId, &settings) == 0, settings, false);
    settings = {};
    channel["userStamp"] =
        stamp(service.getSelfDefinedStampSetting(encId, &settings) == 0, settings, true);
    return channel;
}

// Gives an idle-or-ready channel its next file name in storage.
json nameNextFile(dvrspace::IDVR &service, int encId, const std::string &storage, std::time_t now,
                  ChannelProbe &probe) {
    if (storage.empty()) {
        return refused("channel " + std::to_string(encId) +
                       " has no next file name and the console names none: start dvr-web with "
                       "--storage DIR, or give the channel a name with dvrctl");
    }
    const dvrguard::ChannelNaming naming = probe.naming();
    const std::string name = ChannelControl::fileNameFor(storage, encId, naming.format, now);
    if (naming.fileNameLengthLimit > 0 &&
        name.size() >= static_cast<size_t>(naming.fileNameLengthLimit)) {
        return refused("the next file name of channel " + std::to_string(encId) + " would be " +
                       std::to_string(name.size()) + " characters, the service takes fewer than " +
                       std::to_string(naming.fileNameLengthLimit) +
                       ": give dvr-web a shorter --storage");
    }
    json named = outcome(service, encId, "nextFile", service.nextFile(encId, name.c_str()));
    named["file"] = name;
    return named;
}

}  // namespace

std::string ChannelControl::fileNameFor(const std::string &storage, int encId, int format,
                                        std::time_t now) {
    char stamp[32] = {};
    tm local{};
    localtime_r(&now, &local);
    strftime(stamp, sizeof stamp, "%Y%m%d_%H%M%S", &local);
    const std::string base = storage + "/web_c" + std::to_string(encId) + "_" + stamp;
    const std::string extension = "." + EnumNames::fileFormats().name(format);
    std::string name = base + extension;
    for (int n = 1; access(name.c_str(), F_OK) == 0; ++n) {
        name = base + "_" + std::to_string(n) + extension;
    }
    return name;
}

json ChannelControl::describeAll(dvrspace::IDVR &service) {
    json channels = json::array();
    const int count = service.getRecorderCount();
    for (int index = 0; index < count; ++index) {
        int encId = 0;
        if (service.getEncoder(index, &encId) == 0) {
            channels.push_back(describe(service, encId));
        }
    }
    return {{"status", kHttpOk}, {"channels", channels}};
}

json ChannelControl::start(dvrspace::IDVR &service, int encId, const std::string &storage,
                           std::time_t now) {
    ChannelProbe probe(service, encId);
    if (!probe.known()) {
        return unknownChannel(encId);
    }
    json named;
    const int state = probe.state();
    if (state == dvrspace::DVR_STM_RECORDING) {
        return refused("channel " + std::to_string(encId) + " is recording already");
    }
    if (state == dvrspace::DVR_STM_IDLE) {
        named = nameNextFile(service, encId, storage, now, probe);
        if (named["status"] != kHttpOk) {
            return named;
        }
    }
    // Checked after naming, as the guard wants a ready channel; a name left
    // behind by a refusal is harmless (the next start uses it).
    if (const dvrguard::Refusal refusal = dvrguard::RequestGuard::startRecord(
            encId, probe.state(), service.getAudioRecording(encId), probe.audioAttached())) {
        return refused(*refusal);
    }
    json started = outcome(service, encId, "startRecord", service.startRecord(encId));
    if (named.contains("file")) {
        started["file"] = named["file"];
    }
    return started;
}

json ChannelControl::stop(dvrspace::IDVR &service, int encId) {
    ChannelProbe probe(service, encId);
    if (!probe.known()) {
        return unknownChannel(encId);
    }
    return outcome(service, encId, "stopRecord", service.stopRecord(encId));
}

json ChannelControl::nextFile(dvrspace::IDVR &service, int encId, const std::string &storage,
                              std::time_t now) {
    ChannelProbe probe(service, encId);
    if (!probe.known()) {
        return unknownChannel(encId);
    }
    return nameNextFile(service, encId, storage, now, probe);
}

json ChannelControl::snapshot(dvrspace::IDVR &service, int encId) {
    ChannelProbe probe(service, encId);
    if (!probe.known()) {
        return unknownChannel(encId);
    }
    dvrspace::SnapshotPA_t frame{};
    const int result = service.takeSnapshot(encId, frame);
    if (result != 0) {
        return outcome(service, encId, "takeSnapshot", result);
    }
    return {{"status", kHttpOk},      {"planes", {frame.planePA[0], frame.planePA[1]}},
            {"width", frame.width},   {"height", frame.height},
            {"stride", frame.stride}, {"timestampUs", frame.timestamp}};
}

}  // namespace dvrweb
