// rtcfg-image: turns a plain runtime.cfg into what the boot loader leaves on a
// device: a memory image holding the block at a physical offset, and a kernel
// command line that names that offset. Point DVR_RTCFG_MEM and
// DVR_RTCFG_CMDLINE at the two outputs and the service reads its factory
// defaults exactly as on the device.
#include <getopt.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "RuntimeCfgImage.h"
#include "ToolVersion.h"

namespace {

void usage(std::ostream &out) {
    out << "usage: rtcfg-image [-o|--offset HEX] RUNTIME_CFG IMAGE_OUT CMDLINE_OUT\n"
           "       rtcfg-image -h|--help | --version\n"
           "Writes IMAGE_OUT with the configuration block at the given offset\n"
           "(default 0x1234) and CMDLINE_OUT with a kernel command line naming it.\n"
           "Options may also follow the operands.\n";
}

}  // namespace

int main(int argc, char **argv) {
    enum { kVersion = 1000 };
    static const option kOptions[] = {{"offset", required_argument, nullptr, 'o'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, kVersion},
                                      {nullptr, 0, nullptr, 0}};
    unsigned long offset = dvrspace::RuntimeCfgImage::kDefaultOffset;
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, ":o:h", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'h':
                usage(std::cout);
                return 0;
            case kVersion:
                dvrtools::printToolVersion("rtcfg-image");
                return 0;
            case 'o': {
                char *end = nullptr;
                errno = 0;
                offset = strtoul(optarg, &end, 16);
                if (errno != 0 || end == optarg || *end != '\0' || offset == 0 ||
                    offset > 0xffffffffUL) {
                    std::cerr << "rtcfg-image: bad offset '" << optarg << "'\n";
                    return 2;
                }
                break;
            }
            case ':':
                std::cerr << "rtcfg-image: " << argv[optind - 1] << " needs a value\n";
                usage(std::cerr);
                return 2;
            default:
                std::cerr << "rtcfg-image: unknown option " << argv[optind - 1] << "\n";
                usage(std::cerr);
                return 2;
        }
    }
    if (argc - optind != 3) {
        usage(std::cerr);
        return 2;
    }
    char **operands = argv + optind;

    std::string error;
    if (!dvrspace::RuntimeCfgImage::write(operands[0], operands[1], operands[2], offset, &error)) {
        std::cerr << "rtcfg-image: " << error << "\n";
        return 1;
    }
    return 0;
}
