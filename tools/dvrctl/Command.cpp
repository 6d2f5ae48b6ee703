#include "Command.h"

namespace dvrctl {

std::string Command::help() const {
    std::string text = "Usage: dvrctl [--json] [--service NAME] [--wait MS] " + name;
    if (!synopsis.empty()) {
        text += " " + synopsis;
    }
    text += "\n\n" + summary + "\n";
    if (!details.empty()) {
        text += "\n" + details;
    }
    return text;
}

}  // namespace dvrctl
