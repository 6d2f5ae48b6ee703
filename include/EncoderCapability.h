// Encoder capability, filled by the encoder's getCapability() and shared by all
// recorders; clients receive a copy as EncoderDeviceCaps_t.
#ifndef DVR_ENCODER_CAPABILITY_H
#define DVR_ENCODER_CAPABILITY_H

#include <cstdint>

namespace dvrspace {

struct EncoderCapability_t {
    int32_t file_name_length_limit;  // bytes for file names and paths
    int32_t max_width;
    int32_t max_height;
    int32_t max_file_length;  // seconds
    int32_t min_file_length;  // seconds
    int32_t max_bit_rate;     // Mbps
    int32_t min_bit_rate;     // Mbps
    int32_t max_frame_rate;
    int32_t min_frame_rate;
};

static_assert(sizeof(EncoderCapability_t) == 36, "nine 32-bit fields");

}  // namespace dvrspace

#endif  // DVR_ENCODER_CAPABILITY_H
