// dvr_server: the recording service's process. It builds the service object,
// publishes it over binder, serves it on the binder thread pool and, on
// SIGTERM or SIGINT, stops every recording so that each file is complete
// before the service is torn down.
#define LOG_TAG "DVRServer"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DVR.h"
#include "DVRBinderFront.h"
#include "DVRLog.h"
#include "RuntimeCfgImage.h"
#include "StartupRepair.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kDefaultThreads = 15;
constexpr int kMaxThreads = 64;
constexpr const char *kDefaultName = "dvr";

struct Options {
    std::string runtimeCfg;
    std::string name = kDefaultName;
    int threads = kDefaultThreads;
};

// Options that only hand a path to a library through its environment variable.
const struct {
    const char *option;
    const char *variable;
} kPathOptions[] = {
    {"--sim-config", "DVR_SIM_CONFIG"}, {"--state-dir", "DVR_SVC_DIR"},
    {"--data", "DVR_VENDOR_DATA"},      {"--binder-dir", "DVR_BINDER_DIR"},
    {"--msg-dir", "DVR_MSG_DIR"},
};

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: dvr_server [--runtime-cfg FILE] [--sim-config FILE] [--state-dir DIR]\n"
            "                  [--data FILE] [--binder-dir DIR] [--msg-dir DIR]\n"
            "                  [--name NAME] [--threads N] [--help]\n"
            "\n"
            "Runs the recording service and publishes it over binder as NAME (default\n"
            "\"%s\") until SIGTERM or SIGINT, which stop every recording first.\n"
            "\n"
            "  --runtime-cfg FILE  factory defaults from a plain runtime.cfg instead of the\n"
            "                      boot loader's block (/proc/cmdline, /dev/mem)\n"
            "  --sim-config FILE   simulated devices' configuration   (DVR_SIM_CONFIG)\n"
            "  --state-dir DIR     service monitor's state directory  (DVR_SVC_DIR)\n"
            "  --data FILE         vendor-data store                  (DVR_VENDOR_DATA)\n"
            "  --binder-dir DIR    binder service directory           (DVR_BINDER_DIR)\n"
            "  --msg-dir DIR       system message channel directory   (DVR_MSG_DIR)\n"
            "  --threads N         binder threads, 1 to %d (default %d)\n"
            "\n"
            "Each path option sets the environment variable named after it; without the\n"
            "option the variable is used as it is.\n"
            "\n"
            "Exit status: 0 after a signal, 1 when the service cannot be set up, 2 on bad\n"
            "usage.\n",
            kDefaultName, kMaxThreads, kDefaultThreads);
}

int usageError(const std::string &message) {
    fprintf(stderr, "dvr_server: %s\nTry 'dvr_server --help'.\n", message.c_str());
    return kUsageError;
}

bool parseThreads(const char *text, int *threads) {
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1 || value > kMaxThreads) {
        return false;
    }
    *threads = static_cast<int>(value);
    return true;
}

// Returns -1 when the options are good, else the exit status.
int parseOptions(int argc, char **argv, Options *options) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            printUsage(stdout);
            return 0;
        }
        if (i + 1 >= argc) {
            return usageError(option.compare(0, 2, "--") == 0
                                  ? "option " + option + " needs a value"
                                  : "unexpected argument '" + option + "'");
        }
        const char *value = argv[++i];
        if (value[0] == '\0') {
            return usageError("option " + option + " needs a non-empty value");
        }
        bool known = false;
        for (const auto &pathOption : kPathOptions) {
            if (option == pathOption.option) {
                setenv(pathOption.variable, value, 1);
                known = true;
            }
        }
        if (known) {
            continue;
        }
        if (option == "--runtime-cfg") {
            options->runtimeCfg = value;
        } else if (option == "--name") {
            options->name = value;
        } else if (option == "--threads") {
            if (!parseThreads(value, &options->threads)) {
                return usageError("--threads takes a number from 1 to " +
                                  std::to_string(kMaxThreads) + ", not '" + value + "'");
            }
        } else {
            return usageError("unknown option '" + option + "'");
        }
    }
    return -1;
}

// The configuration image and command line live in a private directory that
// goes with the server.
class RunDirectory {
public:
    ~RunDirectory() {
        if (mPath.empty()) {
            return;
        }
        unlink(imagePath().c_str());
        unlink(cmdlinePath().c_str());
        rmdir(mPath.c_str());
    }

    // Makes the image from runtimeCfg and points the configuration reader at it.
    bool installRuntimeConfig(const std::string &runtimeCfg) {
        // systemd's RuntimeDirectory= first, so the files live under /run.
        const char *parent = getenv("RUNTIME_DIRECTORY");
        if (parent == nullptr || parent[0] == '\0') {
            parent = getenv("TMPDIR");
        }
        std::string pattern =
            std::string(parent != nullptr && parent[0] != '\0' ? parent : "/tmp") +
            "/dvr_server.XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            fprintf(stderr, "dvr_server: cannot create a directory like %s: %s\n", pattern.c_str(),
                    strerror(errno));
            return false;
        }
        mPath = pattern;
        std::string error;
        if (!dvrspace::RuntimeCfgImage::write(runtimeCfg, imagePath(), cmdlinePath(),
                                              dvrspace::RuntimeCfgImage::kDefaultOffset, &error)) {
            fprintf(stderr, "dvr_server: %s\n", error.c_str());
            return false;
        }
        setenv("DVR_RTCFG_MEM", imagePath().c_str(), 1);
        setenv("DVR_RTCFG_CMDLINE", cmdlinePath().c_str(), 1);
        return true;
    }

private:
    std::string imagePath() const { return mPath + "/runtime.img"; }
    std::string cmdlinePath() const { return mPath + "/cmdline"; }

    std::string mPath;
};

}  // namespace

int main(int argc, char **argv) {
    Options options;
    const int parseStatus = parseOptions(argc, argv, &options);
    if (parseStatus >= 0) {
        return parseStatus;
    }
    RunDirectory runDirectory;
    if (!options.runtimeCfg.empty() && !runDirectory.installRuntimeConfig(options.runtimeCfg)) {
        return 1;
    }

    // Blocked before the first thread starts, so every thread inherits the
    // mask and the signals wait for sigwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    android::sp<dvrspace::DVR> service = new dvrspace::DVR();
    dvrtools::StartupRepair::repairDefaultStorage();
    const android::sp<dvrspace::DVRBinderFront> front =
        new dvrspace::DVRBinderFront(android::IInterface::asBinder(service));
    const android::status_t status = android::defaultServiceManager()->addService(
        android::String16(options.name.c_str()), front);
    if (status != android::OK) {
        DVR_LOGE("Cannot publish the service as '%s': %s\n", options.name.c_str(),
                 strerror(-status));
        front->withdraw();
        service.clear();
        return 1;
    }
    android::ProcessState::self()->setThreadPoolMaxThreadCount(options.threads);
    android::ProcessState::self()->startThreadPool();
    DVR_LOGI("Serving '%s' with up to %d binder threads\n", options.name.c_str(), options.threads);

    int stopSignal = 0;
    sigwait(&stopSignals, &stopSignal);
    DVR_LOGI("%s: stopping\n", strsignal(stopSignal));
    // No client call may start a recording behind the stop.
    front->withdraw();
    service->stopRecordAll();
    const android::wp<dvrspace::DVR> released = service;
    service.clear();
    if (released.promote() != nullptr) {
        DVR_LOGW("Service still referenced elsewhere; it ends with the process\n");
    }
    DVR_LOGI("Stopped\n");
    return 0;
}
