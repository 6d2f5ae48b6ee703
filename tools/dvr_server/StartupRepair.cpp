#define LOG_TAG "DVRServer"

#include "StartupRepair.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <cstring>

#include "DVRLog.h"
#include "Recorder.h"
#include "RecordingRepair.h"

namespace dvrtools {

namespace {

bool isAviName(const std::string &name) {
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".avi") == 0;
}

}  // namespace

int StartupRepair::repairDirectory(const std::string &directory) {
    DIR *dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return 0;
    }
    int repaired = 0;
    while (const dirent *entry = readdir(dir)) {
        const std::string path = directory + "/" + entry->d_name;
        struct stat info {};
        if (!isAviName(entry->d_name) || stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
            !dvrspace::RecordingRepair::needsRepair(path)) {
            continue;
        }
        if (dvrspace::RecordingRepair::openElsewhere(path)) {
            DVR_LOGW("Not repairing %s: another process has it open\n", path.c_str());
            continue;
        }
        const dvrspace::RepairResult result = dvrspace::RecordingRepair::repair(path);
        if (result.repaired) {
            DVR_LOGI("Repaired %s: %lld video frames, %.3f s\n", path.c_str(),
                     static_cast<long long>(result.videoFrames), result.durationSeconds);
            ++repaired;
        } else {
            DVR_LOGE("Cannot repair %s: %s\n", path.c_str(), result.error.c_str());
        }
    }
    closedir(dir);
    return repaired;
}

int StartupRepair::repairDefaultStorage() {
    return dvrspace::gDefaultPath != nullptr && dvrspace::gDefaultPath[0] != '\0'
               ? repairDirectory(dvrspace::gDefaultPath)
               : 0;
}

}  // namespace dvrtools
