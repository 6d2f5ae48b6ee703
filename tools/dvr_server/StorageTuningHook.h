// The storage-tuning hook dvr_server installs with Recorder::setCommandRunner.
// The service asks for its storage controller's tuning as a shell command
// ("echo SETTING > FILE") when the first recorder starts and when the last
// one stops. Through this hook no shell runs: the setting is written to the
// controller's file where the board has one, and both events are logged at
// DEBUG either way, instead of a shell's error on every start and stop.
#ifndef DVR_STORAGE_TUNING_HOOK_H
#define DVR_STORAGE_TUNING_HOOK_H

#include <atomic>
#include <string>

namespace dvrspace {

class StorageTuningHook {
public:
    // A Recorder::CommandRunner. Returns 0 when the setting was written or
    // there is no controller to write to, -1 otherwise. Called by the
    // recorders, one call at a time (the service counts recordings under its
    // own lock, so calls alternate: first start, last stop, first start...).
    static int run(const char *command);

private:
    // Splits "echo SETTING > FILE"; false for anything else.
    static bool parse(const std::string &command, std::string *setting, std::string *file);

    static std::atomic<unsigned> sCalls;
};

}  // namespace dvrspace

#endif  // DVR_STORAGE_TUNING_HOOK_H
