// What the service reports about one channel (a recorder, named by its
// encoder id), read with the getters when a guard rail or an explanation
// needs it, each value at most once. getAttachedCamera and getAttachedAudio
// abort the service on an unknown encoder id, so they are asked only after
// getEncoder has listed the id. Main thread only.
#ifndef DVRCTL_CHANNEL_PROBE_H
#define DVRCTL_CHANNEL_PROBE_H

#include <optional>
#include <string>

#include "IDVR.h"
#include "RequestGuard.h"
#include "ResultExplainer.h"

namespace dvrctl {

class ChannelProbe {
public:
    ChannelProbe(dvrspace::IDVR &service, int encId);

    // Whether a recorder has this encoder id.
    bool known();
    // False also for an unknown channel.
    bool cameraAttached();
    bool audioAttached();
    int state();
    dvrguard::ChannelNaming naming();
    // The situation of a failed operation on this channel.
    dvrguard::Situation situation(const std::string &operation);

private:
    dvrspace::IDVR &mService;
    const int mEncId;
    std::optional<bool> mKnown;
};

}  // namespace dvrctl

#endif  // DVRCTL_CHANNEL_PROBE_H
