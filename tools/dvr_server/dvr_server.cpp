// dvr_server: the recording service's process. It builds the service object,
// publishes it over binder, serves it on the binder thread pool and, on
// SIGTERM or SIGINT, stops every recording so that each file is complete
// before the service is torn down.
#define LOG_TAG "DVRServer"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "DVR.h"
#include "DVRBinderFront.h"
#include "DVRLog.h"
#include "Recorder.h"
#include "RuntimeCfgImage.h"
#include "StartupRepair.h"
#include "ServerLogger.h"
#include "StorageTuningHook.h"
#include "SystemdNotifier.h"
#include "ToolVersion.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kDefaultThreads = 15;
constexpr int kMaxThreads = 64;
constexpr const char *kDefaultName = "dvr";

struct Options {
    std::string runtimeCfg;
    std::string name = kDefaultName;
    int threads = kDefaultThreads;
    int logPriority = ANDROID_LOG_INFO;
};

// Options that only hand a path to a library through its environment variable.
const struct {
    const char *option;
    const char *variable;
} kPathOptions[] = {
    {"sim-config", "DVR_SIM_CONFIG"}, {"state-dir", "DVR_SVC_DIR"}, {"data", "DVR_VENDOR_DATA"},
    {"binder-dir", "DVR_BINDER_DIR"}, {"msg-dir", "DVR_MSG_DIR"},
};

const struct {
    const char *name;
    int priority;
} kLogLevels[] = {
    {"debug", ANDROID_LOG_DEBUG},
    {"info", ANDROID_LOG_INFO},
    {"warn", ANDROID_LOG_WARN},
    {"error", ANDROID_LOG_ERROR},
};

enum OptionId {
    kHelp = 'h',
    kRuntimeCfg = 256,
    kName,
    kThreads,
    kLogLevel,
    kVersion,
    kFirstPathOption,
};

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: dvr_server [--runtime-cfg FILE] [--sim-config FILE] [--state-dir DIR]\n"
            "                  [--data FILE] [--binder-dir DIR] [--msg-dir DIR]\n"
            "                  [--name NAME] [--threads N] [--log-level LEVEL]\n"
            "       dvr_server -h|--help | --version\n"
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
            "  --log-level LEVEL   least priority logged: debug, info (default), warn or\n"
            "                      error; the storage-tuning events are debug lines\n"
            "  -h, --help          this text\n"
            "      --version       the version\n"
            "\n"
            "Each path option sets the environment variable named after it; without the\n"
            "option the variable is used as it is. A NAME that a running server publishes\n"
            "already is refused before any device is touched.\n"
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

bool parseLogLevel(const char *text, int *priority) {
    for (const auto &level : kLogLevels) {
        if (strcmp(text, level.name) == 0) {
            *priority = level.priority;
            return true;
        }
    }
    return false;
}

std::vector<option> longOptions() {
    std::vector<option> options = {
        {"help", no_argument, nullptr, kHelp},
        {"version", no_argument, nullptr, kVersion},
        {"runtime-cfg", required_argument, nullptr, kRuntimeCfg},
        {"name", required_argument, nullptr, kName},
        {"threads", required_argument, nullptr, kThreads},
        {"log-level", required_argument, nullptr, kLogLevel},
    };
    int id = kFirstPathOption;
    for (const auto &pathOption : kPathOptions) {
        options.push_back({pathOption.option, required_argument, nullptr, id++});
    }
    options.push_back({nullptr, 0, nullptr, 0});
    return options;
}

// Returns -1 when the options are good, else the exit status.
int parseOptions(int argc, char **argv, Options *options) {
    const std::vector<option> table = longOptions();
    opterr = 0;
    for (;;) {
        int longIndex = -1;
        const int id = getopt_long(argc, argv, ":h", table.data(), &longIndex);
        if (id == -1) {
            break;
        }
        // The option as given, for the messages: "--name", "-h", "--colour".
        const std::string given =
            longIndex >= 0 ? std::string("--") + table[longIndex].name : argv[optind - 1];
        switch (id) {
            case kHelp:
                printUsage(stdout);
                return 0;
            case kVersion:
                dvrtools::printToolVersion("dvr_server");
                return 0;
            case ':':
                return usageError("option " + given + " needs a value");
            case '?':
                return usageError("unknown option '" + given + "'");
            default:
                break;
        }
        if (optarg[0] == '\0') {
            return usageError("option " + given + " needs a non-empty value");
        }
        if (id >= kFirstPathOption) {
            setenv(kPathOptions[id - kFirstPathOption].variable, optarg, 1);
        } else if (id == kRuntimeCfg) {
            options->runtimeCfg = optarg;
        } else if (id == kName) {
            options->name = optarg;
        } else if (id == kThreads && !parseThreads(optarg, &options->threads)) {
            return usageError("--threads takes a number from 1 to " + std::to_string(kMaxThreads) +
                              ", not '" + optarg + "'");
        } else if (id == kLogLevel && !parseLogLevel(optarg, &options->logPriority)) {
            return usageError("--log-level takes debug, info, warn or error, not '" +
                              std::string(optarg) + "'");
        }
    }
    if (optind < argc) {
        return usageError("unexpected argument '" + std::string(argv[optind]) + "'");
    }
    return -1;
}

// Fails fast when a running server publishes the name already, before the
// service builds its devices and recorders: that touches the devices the
// running server uses and, on a board, waits for the encoder service without
// a time limit. Publishing checks again, for a server that starts meanwhile.
bool nameIsFree(const std::string &name) {
    if (android::defaultServiceManager()->checkService(android::String16(name.c_str())) ==
        nullptr) {
        return true;
    }
    fprintf(stderr,
            "dvr_server: the name '%s' is taken: a running server publishes it in the binder "
            "directory; stop that server or give another --name\n",
            name.c_str());
    return false;
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
        // systemd's RuntimeDirectory= first, so the files live under /run; with
        // several runtime directories systemd lists them separated by ':', and
        // the first is the server's own.
        std::string parent =
            getenv("RUNTIME_DIRECTORY") != nullptr ? getenv("RUNTIME_DIRECTORY") : "";
        parent = parent.substr(0, parent.find(':'));
        if (parent.empty() && getenv("TMPDIR") != nullptr) {
            parent = getenv("TMPDIR");
        }
        std::string pattern = (parent.empty() ? "/tmp" : parent) + "/dvr_server.XXXXXX";
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
    dvrspace::ServerLogger::install(options.logPriority);
    if (!nameIsFree(options.name)) {
        return 1;
    }
    RunDirectory runDirectory;
    if (!options.runtimeCfg.empty() && !runDirectory.installRuntimeConfig(options.runtimeCfg)) {
        return 1;
    }
    // The board's storage controller is tuned without a shell, and where there
    // is none the tuning is a debug line rather than a shell's error.
    dvrspace::Recorder::setCommandRunner(&dvrspace::StorageTuningHook::run);

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
    dvrspace::SystemdNotifier systemd;
    systemd.ready("Serving '" + options.name + "'");
    // The probe takes the service lock and a recorder's settings lock, as a
    // client's call does: a wedged channel stops the pings.
    systemd.startWatchdog([service] {
        if (service->getRecorderCount() > 0) {
            (void)service->getAudioRecording(0);
        }
    });

    int stopSignal = 0;
    sigwait(&stopSignals, &stopSignal);
    DVR_LOGI("%s: stopping\n", strsignal(stopSignal));
    systemd.stopping("Stopping every recording");
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
