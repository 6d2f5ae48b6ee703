// The daemon as a loadable module (dvr-keeper-daemon.so), which `dvr-keeper
// run` loads with dlopen: the daemon needs FFmpeg, through which some hundred
// libraries load, and the other commands (list, stats, lock) should not pay
// for that at every start (docs/performance.md). Main thread, once.
#ifndef DVR_KEEPER_KEEPER_DAEMON_MODULE_H
#define DVR_KEEPER_KEEPER_DAEMON_MODULE_H

#include "KeeperConfig.h"

namespace dvrkeeper {

// The module's file name, and the name and type of its entry point.
constexpr const char *kDaemonModuleFile = "dvr-keeper-daemon.so";
constexpr const char *kDaemonEntryPoint = "dvrKeeperRunDaemon";
using DaemonEntryPoint = int (*)(const KeeperConfig *config);

}  // namespace dvrkeeper

// Runs KeeperDaemon(*config) and returns its exit status. SIGINT and SIGTERM
// must be blocked already.
extern "C" int dvrKeeperRunDaemon(const dvrkeeper::KeeperConfig *config);

#endif  // DVR_KEEPER_KEEPER_DAEMON_MODULE_H
