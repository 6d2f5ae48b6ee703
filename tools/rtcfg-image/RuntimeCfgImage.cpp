#include "RuntimeCfgImage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

namespace dvrspace {

namespace {

constexpr size_t kBlockSize = 10240;
constexpr size_t kPageSize = 4096;
constexpr const char *kHeaderLine = "# runtime.cfg (dvr runtime configuration block)\n";

bool readWhole(const std::string &path, std::string &text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
    return true;
}

bool writeWhole(const std::string &path, const char *data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data, static_cast<std::streamsize>(size));
    return static_cast<bool>(out);
}

}  // namespace

bool RuntimeCfgImage::write(const std::string &configPath, const std::string &imagePath,
                            const std::string &cmdlinePath, unsigned long offset,
                            std::string *error) {
    std::string config;
    if (!readWhole(configPath, config)) {
        *error = "cannot read " + configPath + ": " + strerror(errno);
        return false;
    }
    if (config.find('\0') != std::string::npos) {
        *error = configPath + " contains a NUL byte";
        return false;
    }
    // The first line can never match a key, so the block starts with a header.
    std::string block = std::string(kHeaderLine) + config;
    if (block.back() != '\n') {
        block += '\n';
    }
    if (block.size() + 1 > kBlockSize) {
        *error = "configuration is " + std::to_string(block.size() + 1) +
                 " bytes with its terminator; the block holds " + std::to_string(kBlockSize);
        return false;
    }

    // The image covers the whole mapping the reader makes: from the page that
    // holds the offset to offset + block size.
    const size_t imageSize = (offset + kBlockSize + kPageSize - 1) / kPageSize * kPageSize;
    std::vector<char> image(imageSize, '\0');
    memcpy(image.data() + offset, block.data(), block.size());
    if (!writeWhole(imagePath, image.data(), image.size())) {
        *error = "cannot write " + imagePath;
        return false;
    }

    char cmdline[256];
    snprintf(cmdline, sizeof(cmdline), "console=ttyS0 res_rtcfg=%zu@0x%lx quiet\n", kBlockSize,
             offset);
    if (!writeWhole(cmdlinePath, cmdline, strlen(cmdline))) {
        *error = "cannot write " + cmdlinePath;
        return false;
    }
    return true;
}

}  // namespace dvrspace
