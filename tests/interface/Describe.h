// Text forms of the values that cross the interfaces, one field after another,
// so that a test compares what was sent with what arrived field by field in
// one readable string.
#ifndef DVR_TEST_INTERFACE_DESCRIBE_H
#define DVR_TEST_INTERFACE_DESCRIBE_H

#include <set>
#include <string>
#include <vector>

#include "IDVR.h"

namespace dvrtest {

std::string describe(int value);
std::string describe(unsigned int value);
std::string describe(bool value);
// Null, or the text in double quotes.
std::string describe(const char *text);
std::string describe(const dvrspace::QVStampSettings_t &stamp);
std::string describe(const dvrspace::CameraDeviceCaps_t &caps);
std::string describe(const dvrspace::AudioDeviceCaps_t &caps);
std::string describe(const dvrspace::EncoderDeviceCaps_t &caps);
std::string describe(const dvrspace::SnapshotPA_t &snapshot);
std::string describe(const std::vector<int> &values);
std::string describe(const std::set<unsigned int> &values);
// "null" or "callback".
std::string describe(const android::sp<dvrspace::IDVRCallback> &callback);

// Enumerations as their numeric value.
template <typename E, typename = std::enable_if_t<std::is_enum_v<E>>>
std::string describe(E value) {
    return describe(static_cast<int>(value));
}

// "null" or "&" followed by the value.
template <typename T>
std::string describe(const T *value) {
    return value == nullptr ? "null" : "&" + describe(*value);
}

}  // namespace dvrtest

#endif  // DVR_TEST_INTERFACE_DESCRIBE_H
