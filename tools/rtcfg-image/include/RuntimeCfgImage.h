// Turns a plain runtime.cfg into what the boot loader leaves on a device: a
// memory image holding the configuration block at a physical offset, and a
// kernel command line naming that offset. Pointing DVR_RTCFG_MEM and
// DVR_RTCFG_CMDLINE at the two files makes the service read its factory
// defaults exactly as on the device. Used by rtcfg-image and dvr_server; any
// thread, no shared state.
#ifndef DVR_RUNTIME_CFG_IMAGE_H
#define DVR_RUNTIME_CFG_IMAGE_H

#include <string>

namespace dvrspace {

class RuntimeCfgImage {
public:
    // Deliberately not page-aligned, so the reader's in-page remainder is used.
    static constexpr unsigned long kDefaultOffset = 0x1234;

    // Reads configPath and writes imagePath and cmdlinePath. On failure returns
    // false with a one-line reason in *error; the image is only written once
    // the configuration was found to fit.
    static bool write(const std::string &configPath, const std::string &imagePath,
                      const std::string &cmdlinePath, unsigned long offset, std::string *error);
};

}  // namespace dvrspace

#endif  // DVR_RUNTIME_CFG_IMAGE_H
