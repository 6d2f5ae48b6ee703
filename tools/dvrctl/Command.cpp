#include "Command.h"

namespace dvrctl {

std::string Command::help() const {
    std::string text = "Usage: dvrctl [OPTIONS] " + name;
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
