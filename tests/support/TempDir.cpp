#include "TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace dvrtest {

TempDir::TempDir() {
    const char *base = getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") + "/dvr-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    const char *made = mkdtemp(buffer.data());
    if (made == nullptr) {
        ADD_FAILURE() << "mkdtemp failed for " << pattern;
        return;
    }
    mPath = made;
}

TempDir::~TempDir() {
    if (!mPath.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
}

std::string TempDir::file(const std::string &name) const {
    return mPath + "/" + name;
}

std::string TempDir::write(const std::string &name, const std::string &data) const {
    const std::string path = file(name);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    if (!out) {
        ADD_FAILURE() << "cannot write " << path;
    }
    return path;
}

}  // namespace dvrtest
