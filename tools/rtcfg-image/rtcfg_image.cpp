// rtcfg-image: turns a plain runtime.cfg into what the boot loader leaves on a
// device: a memory image holding the block at a physical offset, and a kernel
// command line that names that offset. Point DVR_RTCFG_MEM and
// DVR_RTCFG_CMDLINE at the two outputs and the service reads its factory
// defaults exactly as on the device.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "RuntimeCfgImage.h"

namespace {

void usage(std::ostream &out) {
    out << "usage: rtcfg-image RUNTIME_CFG IMAGE_OUT CMDLINE_OUT [--offset HEX]\n"
           "Writes IMAGE_OUT with the configuration block at the given offset\n"
           "(default 0x1234) and CMDLINE_OUT with a kernel command line naming it.\n";
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        usage(std::cout);
        return 0;
    }
    unsigned long offset = dvrspace::RuntimeCfgImage::kDefaultOffset;
    if (argc == 6 && strcmp(argv[4], "--offset") == 0) {
        char *end = nullptr;
        errno = 0;
        offset = strtoul(argv[5], &end, 16);
        if (errno != 0 || end == argv[5] || *end != '\0' || offset == 0 || offset > 0xffffffffUL) {
            std::cerr << "rtcfg-image: bad offset '" << argv[5] << "'\n";
            return 2;
        }
    } else if (argc != 4) {
        usage(std::cerr);
        return 2;
    }

    std::string error;
    if (!dvrspace::RuntimeCfgImage::write(argv[1], argv[2], argv[3], offset, &error)) {
        std::cerr << "rtcfg-image: " << error << "\n";
        return 1;
    }
    return 0;
}
