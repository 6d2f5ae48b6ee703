#include "Command.h"

#include <utility>

namespace dvrctl {

namespace {

std::string usage(const Command &command) {
    std::string text = "dvrctl [OPTIONS] " + command.name;
    if (!command.synopsis.empty()) {
        text += " " + command.synopsis;
    }
    return text;
}

}  // namespace

Call onService(ServiceCall call) {
    return [call = std::move(call)](dvrspace::DVRClient &client, Report &report) {
        return call(client.service(), report);
    };
}

std::string Command::help() const {
    std::string text = "Usage: " + usage(*this) + "\n\n" + summary + "\n";
    if (!details.empty()) {
        text += "\n" + details;
    }
    return text;
}

nlohmann::json Command::helpJson() const {
    return {{"command", name}, {"usage", usage(*this)}, {"summary", summary}, {"details", details}};
}

}  // namespace dvrctl
