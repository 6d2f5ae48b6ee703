// At start-up the server repairs the recordings that a kill of its previous
// run left incomplete in its default storage path (an AVI without its index
// has no duration), so they play like any other. Files another process has
// open are left alone. Called once from main, on the main thread, after the
// service object has read its default path.
#ifndef DVR_STARTUP_REPAIR_H
#define DVR_STARTUP_REPAIR_H

#include <string>

namespace dvrtools {

class StartupRepair {
public:
    // Repairs the incomplete recordings directly in directory; every repair
    // and every refusal is logged. Returns the number of files repaired.
    static int repairDirectory(const std::string &directory);
    // repairDirectory on the service's default storage path, when it has one.
    static int repairDefaultStorage();
};

}  // namespace dvrtools

#endif  // DVR_STARTUP_REPAIR_H
