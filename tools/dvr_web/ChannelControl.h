// What the console asks the service about its channels and what it asks of
// them, each as a JSON answer with the HTTP status it deserves ("status"):
// refusals of dvrctl's guard rails (a request whose documented outcome would
// wedge a channel or abort the service) and failures explained in one line
// ("reason"). Runs on a ServiceLink request thread; pure otherwise.
#ifndef DVR_WEB_CHANNEL_CONTROL_H
#define DVR_WEB_CHANNEL_CONTROL_H

#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "IDVR.h"

namespace dvrweb {

class ChannelControl {
public:
    // {"status": 200, "channels": [...]}: every channel's state, devices and
    // settings, in the service's order.
    static nlohmann::json describeAll(dvrspace::IDVR &service);
    // Starts recording; an idle channel first gets a next file name in
    // storage (none when storage is empty: refused).
    static nlohmann::json start(dvrspace::IDVR &service, int encId, const std::string &storage,
                                std::time_t now);
    static nlohmann::json stop(dvrspace::IDVR &service, int encId);
    // Names the channel's next file in storage.
    static nlohmann::json nextFile(dvrspace::IDVR &service, int encId, const std::string &storage,
                                   std::time_t now);
    // takeSnapshot: {"status": 200, "planes": [PA, PA], "width", "height",
    // "stride", "timestampUs"}.
    static nlohmann::json snapshot(dvrspace::IDVR &service, int encId);

    // storage/web_c<encId>_<YYYYmmdd_HHMMSS>.<ts|avi>, with _<n> added when
    // that file exists.
    static std::string fileNameFor(const std::string &storage, int encId, int format,
                                   std::time_t now);
};

}  // namespace dvrweb

#endif  // DVR_WEB_CHANNEL_CONTROL_H
