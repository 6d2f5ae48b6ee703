#include "Describe.h"

namespace dvrtest {

namespace {

template <typename Sequence>
std::string describeSequence(const Sequence &values) {
    std::string text = "[";
    for (const auto &value : values) {
        text += (text.size() > 1 ? "," : "") + describe(value);
    }
    return text + "]";
}

}  // namespace

std::string describe(int value) {
    return std::to_string(value);
}

std::string describe(unsigned int value) {
    return std::to_string(value) + "u";
}

std::string describe(bool value) {
    return value ? "true" : "false";
}

std::string describe(const char *text) {
    return text == nullptr ? "null" : "\"" + std::string(text) + "\"";
}

std::string describe(const dvrspace::QVStampSettings_t &stamp) {
    return "{enabled=" + describe(stamp.enabled) + " x=" + describe(stamp.x) +
           " y=" + describe(stamp.y) + " fontSize=" + describe(stamp.fontSize) +
           " color=" + describe(static_cast<int>(stamp.color)) +
           " interval=" + describe(stamp.interval) + "}";
}

std::string describe(const dvrspace::CameraDeviceCaps_t &caps) {
    return "{width=" + describe(caps.width) + " height=" + describe(caps.height) +
           " stride=" + describe(caps.stride) + " format=" + describe(caps.format) + "}";
}

std::string describe(const dvrspace::AudioDeviceCaps_t &caps) {
    return "{caps=" + describe(caps.caps[0]) + "," + describe(caps.caps[1]) + "}";
}

std::string describe(const dvrspace::EncoderDeviceCaps_t &caps) {
    return "{file_name_length_limit=" + describe(caps.file_name_length_limit) +
           " max_width=" + describe(caps.max_width) + " max_height=" + describe(caps.max_height) +
           " max_file_length=" + describe(caps.max_file_length) +
           " min_file_length=" + describe(caps.min_file_length) +
           " max_bit_rate=" + describe(caps.max_bit_rate) +
           " min_bit_rate=" + describe(caps.min_bit_rate) +
           " max_frame_rate=" + describe(caps.max_frame_rate) +
           " min_frame_rate=" + describe(caps.min_frame_rate) + "}";
}

std::string describe(const dvrspace::SnapshotPA_t &snapshot) {
    return "{planePA=" + describe(snapshot.planePA[0]) + "," + describe(snapshot.planePA[1]) +
           " width=" + describe(snapshot.width) + " height=" + describe(snapshot.height) +
           " stride=" + describe(snapshot.stride) +
           " timestamp=" + std::to_string(snapshot.timestamp) + "}";
}

std::string describe(const std::vector<int> &values) {
    return describeSequence(values);
}

std::string describe(const std::set<unsigned int> &values) {
    return describeSequence(values);
}

std::string describe(const android::sp<dvrspace::IDVRCallback> &callback) {
    return callback == nullptr ? "null" : "callback";
}

}  // namespace dvrtest
