#include "KeeperDaemonModule.h"

#include "KeeperDaemon.h"

extern "C" int dvrKeeperRunDaemon(const dvrkeeper::KeeperConfig *config) {
    return dvrkeeper::KeeperDaemon(*config).run();
}
