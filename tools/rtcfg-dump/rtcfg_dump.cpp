// rtcfg-dump: prints what the service's runtime configuration reader finds,
// key by key, with the string, integer and y/n readings side by side. With no
// keys it prints every key the service reads.
#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "ToolVersion.h"
#include "runtimecfg.h"

namespace {

const char *const kServiceKeys[] = {
    "DVR_FORMAT",
    "DVR_BIT_RATE",
    "DVR_FPS",
    "DVR_RES_WIDTH",
    "DVR_RES_HEIGHT",
    "DVR_FILE_LEN",
    "DVR_TIMESTAMP_EN",
    "DVR_TIMESTAMP_POSX",
    "DVR_TIMESTAMP_POSY",
    "DVR_USER_STAMP_EN",
    "DVR_USER_STAMP_POSX",
    "DVR_USER_STAMP_POSY",
    "DVR_USTMP_INTERVAL_MS",
    "DVR_AUDIO_EN",
    "DVRCAM_NUM",
    "DVRCAM_SRC_SEL",
    "DVR_DEFAULT_PATH",
};

void dumpKey(const char *key) {
    char text[256] = {};
    const int length = qv_config_get_string(key, text, sizeof(text));
    int number = 0;
    const int intResult = qv_config_get_int(key, &number);
    bool flag = false;
    const int boolResult = qv_config_get_bool(key, &flag);
    if (length < 0 && intResult < 0) {
        printf("%-22s (absent)\n", key);
        return;
    }
    printf("%-22s string=\"%s\"", key, length >= 0 ? text : "");
    if (intResult == 0) {
        printf(" int=%d", number);
    }
    if (boolResult == 0) {
        printf(" bool=%s", flag ? "y" : "n");
    }
    printf("\n");
}

}  // namespace

int main(int argc, char **argv) {
    enum { kVersion = 1000 };
    static const option kOptions[] = {{"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, kVersion},
                                      {nullptr, 0, nullptr, 0}};
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'h':
                printf(
                    "usage: rtcfg-dump [KEY...]\n"
                    "       rtcfg-dump -h|--help | --version\n"
                    "Reads the runtime configuration block (DVR_RTCFG_CMDLINE and DVR_RTCFG_MEM\n"
                    "replace /proc/cmdline and /dev/mem) and prints each key's readings.\n");
                return 0;
            case kVersion:
                dvrtools::printToolVersion("rtcfg-dump");
                return 0;
            default:
                fprintf(stderr, "rtcfg-dump: unknown option %s\nTry 'rtcfg-dump --help'.\n",
                        argv[optind - 1]);
                return 2;
        }
    }
    if (qv_config_init() != 0) {
        fprintf(stderr, "rtcfg-dump: no runtime configuration block found\n");
        return 1;
    }
    printf("runtime configuration block at offset 0x%x\n", qv_config_parse_offset());
    if (optind < argc) {
        for (int i = optind; i < argc; ++i) {
            dumpKey(argv[i]);
        }
    } else {
        for (const char *key : kServiceKeys) {
            dumpKey(key);
        }
    }
    return 0;
}
