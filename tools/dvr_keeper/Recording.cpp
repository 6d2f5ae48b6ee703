#include "Recording.h"

namespace dvrkeeper {

namespace {

constexpr const char *kStateNames[] = {"recording", "finished", "found", "missing"};

}  // namespace

const char *Recording::stateName(State state) {
    return kStateNames[static_cast<int>(state)];
}

Recording::State Recording::stateFromName(const std::string &name) {
    for (int i = 0; i < 4; ++i) {
        if (name == kStateNames[i]) {
            return static_cast<State>(i);
        }
    }
    return State::kRecording;
}

}  // namespace dvrkeeper
