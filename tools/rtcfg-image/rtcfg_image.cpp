// rtcfg-image: turns a plain runtime.cfg into what the boot loader leaves on a
// device: a memory image holding the block at a physical offset, and a kernel
// command line that names that offset. Point DVR_RTCFG_MEM and
// DVR_RTCFG_CMDLINE at the two outputs and the service reads its factory
// defaults exactly as on the device.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr size_t kBlockSize = 10240;
// Deliberately not page-aligned, so the reader's in-page remainder is used.
constexpr unsigned long kDefaultOffset = 0x1234;
constexpr size_t kPageSize = 4096;
constexpr const char *kHeaderLine = "# runtime.cfg (dvr runtime configuration block)\n";

void usage(std::ostream &out) {
    out << "usage: rtcfg-image RUNTIME_CFG IMAGE_OUT CMDLINE_OUT [--offset HEX]\n"
           "Writes IMAGE_OUT with the configuration block at the given offset\n"
           "(default 0x1234) and CMDLINE_OUT with a kernel command line naming it.\n";
}

bool readWhole(const char *path, std::string &text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return true;
}

bool writeWhole(const char *path, const char *data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data, static_cast<std::streamsize>(size));
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        usage(std::cout);
        return 0;
    }
    unsigned long offset = kDefaultOffset;
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

    std::string config;
    if (!readWhole(argv[1], config)) {
        std::cerr << "rtcfg-image: cannot read " << argv[1] << ": " << strerror(errno) << "\n";
        return 1;
    }
    if (config.find('\0') != std::string::npos) {
        std::cerr << "rtcfg-image: " << argv[1] << " contains a NUL byte\n";
        return 1;
    }
    // The first line can never match a key, so the block starts with a header.
    std::string block = std::string(kHeaderLine) + config;
    if (block.empty() || block.back() != '\n') {
        block += '\n';
    }
    if (block.size() + 1 > kBlockSize) {
        std::cerr << "rtcfg-image: configuration is " << block.size() + 1
                  << " bytes with its terminator; the block holds " << kBlockSize << "\n";
        return 1;
    }

    // The image covers the whole mapping the reader makes: from the page that
    // holds the offset to offset + block size.
    const size_t imageSize = (offset + kBlockSize + kPageSize - 1) / kPageSize * kPageSize;
    std::vector<char> image(imageSize, '\0');
    memcpy(image.data() + offset, block.data(), block.size());
    if (!writeWhole(argv[2], image.data(), image.size())) {
        std::cerr << "rtcfg-image: cannot write " << argv[2] << "\n";
        return 1;
    }

    char cmdline[256];
    snprintf(cmdline, sizeof(cmdline), "console=ttyS0 res_rtcfg=%zu@0x%lx quiet\n", kBlockSize,
             offset);
    if (!writeWhole(argv[3], cmdline, strlen(cmdline))) {
        std::cerr << "rtcfg-image: cannot write " << argv[3] << "\n";
        return 1;
    }
    return 0;
}
