#include "EnumNames.h"

#include "DVRTypes.h"

using namespace dvrspace;

namespace dvrctl {

EnumNames::EnumNames(std::vector<std::pair<int, std::string>> names) : mNames(std::move(names)) {}

std::optional<int> EnumNames::parse(const std::string &word) const {
    for (const auto &[value, name] : mNames) {
        if (name == word) {
            return value;
        }
    }
    return std::nullopt;
}

std::string EnumNames::name(int value) const {
    for (const auto &[known, name] : mNames) {
        if (known == value) {
            return name;
        }
    }
    return std::to_string(value);
}

bool EnumNames::hasName(int value) const {
    for (const auto &entry : mNames) {
        if (entry.first == value) {
            return true;
        }
    }
    return false;
}

std::string EnumNames::choices() const {
    std::string text;
    for (const auto &entry : mNames) {
        text += (text.empty() ? "" : "|") + entry.second;
    }
    return text;
}

const EnumNames &EnumNames::fileFormats() {
    static const EnumNames names({{DVR_FILE_FORMAT_AVI, "avi"}, {DVR_FILE_FORMAT_TS, "ts"}});
    return names;
}

const EnumNames &EnumNames::resolutions() {
    static const EnumNames names({{DVR_RESOLUTION_INPUT, "default"},
                                  {DVR_RESOLUTION_1080P, "1080p"},
                                  {DVR_RESOLUTION_720P, "720p"},
                                  {DVR_RESOLUTION_480P, "480p"}});
    return names;
}

const EnumNames &EnumNames::callbackTypes() {
    static const EnumNames names({{DVR_CBK_OBJ_RECORD, "record"},
                                  {DVR_CBK_OBJ_ERROR, "error"},
                                  {DVR_CBK_OBJ_ABNORMAL, "abnormal"},
                                  {DVR_CBK_OBJ_STAMP, "stamp"},
                                  {DVR_CBK_OBJ_FILENAME, "filename"}});
    return names;
}

const EnumNames &EnumNames::callbackCommands() {
    static const EnumNames names({{DVR_CBK_RECORD_START, "start"},
                                  {DVR_CBK_RECORD_FINISH, "finish"},
                                  {DVR_CBK_ERROR, "error"},
                                  {DVR_CBK_ERROR_SEVERE, "severe"},
                                  {DVR_CBK_ABNORMAL, "abnormal"}});
    return names;
}

const EnumNames &EnumNames::states() {
    static const EnumNames names({{DVR_STM_NONE, "none"},
                                  {DVR_STM_IDLE, "idle"},
                                  {DVR_STM_READY, "ready"},
                                  {DVR_STM_RECORDING, "recording"},
                                  {DVR_STM_STOPPING, "stopping"}});
    return names;
}

const EnumNames &EnumNames::deviceTypes() {
    static const EnumNames names({{QV_DVR_DEVICE_TYPE_UNKNOWN, "unknown"},
                                  {QV_DVR_DEVICE_TYPE_MIPI, "mipi"},
                                  {QV_DVR_DEVICE_TYPE_CVBS, "cvbs"},
                                  {QV_DVR_DEVICE_TYPE_USB, "usb"},
                                  {QV_DVR_DEVICE_TYPE_SIMULATED, "simulated"}});
    return names;
}

const EnumNames &EnumNames::fontSizes() {
    static const EnumNames names({{QV_DVR_STAMP_FONT_SIZE_SMALLEST, "smallest"},
                                  {QV_DVR_STAMP_FONT_SIZE_SMALL, "small"},
                                  {QV_DVR_STAMP_FONT_SIZE_MEDIUM, "medium"},
                                  {QV_DVR_STAMP_FONT_SIZE_LARGE, "large"},
                                  {QV_DVR_STAMP_FONT_SIZE_LARGEST, "largest"}});
    return names;
}

const EnumNames &EnumNames::videoFormats() {
    static const EnumNames names({{DVR_VIDEO_FORMAT_UNKNOWN, "unknown"},
                                  {DVR_VIDEO_FORMAT_NV12, "nv12"},
                                  {DVR_VIDEO_FORMAT_YUYV, "yuyv"}});
    return names;
}

}  // namespace dvrctl
