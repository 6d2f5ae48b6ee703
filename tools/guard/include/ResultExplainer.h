// The meaning of a result code of the recording service and the likely
// cause of a non-zero one, as one line for people:
// "-3: channel 100 is idle: give it a next file name (nextFile, autoNextFile
// or setFileNameFormat)". Pure; any thread.
#ifndef DVR_GUARD_RESULT_EXPLAINER_H
#define DVR_GUARD_RESULT_EXPLAINER_H

#include <optional>
#include <string>

namespace dvrguard {

// What the caller knows about the request and its channel when it failed.
struct Situation {
    std::string operation;     // the IDVR operation's name
    std::optional<int> encId;  // the channel the request named, if any
    bool channelKnown = true;  // false: no recorder has that encoder id
    std::optional<int> state;  // DVRStm_e of the channel after the failure
    std::string stateName;     // its name ("idle")
    std::optional<bool> cameraAttached;
};

class ResultExplainer {
public:
    // The documented meaning of code: "invalid argument".
    static std::string meaning(int code);
    // The likely cause of code in situation.
    static std::string cause(int code, const Situation &situation);
    // "CODE: CAUSE", the line dvrctl prints.
    static std::string explain(int code, const Situation &situation);
};

}  // namespace dvrguard

#endif  // DVR_GUARD_RESULT_EXPLAINER_H
