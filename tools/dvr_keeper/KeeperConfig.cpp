#include "KeeperConfig.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace dvrkeeper {

namespace {

double positiveNumber(const std::string &name, const std::string &value) {
    char *end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (value.empty() || *end != '\0' || !std::isfinite(number) || number <= 0) {
        throw std::invalid_argument(name + " needs a positive number, not '" + value + "'");
    }
    return number;
}

int positiveInteger(const std::string &name, const std::string &value) {
    char *end = nullptr;
    const long number = std::strtol(value.c_str(), &end, 10);
    if (value.empty() || *end != '\0' || number <= 0 || number > 86400) {
        throw std::invalid_argument(
            name + " needs a whole number of seconds from 1 to 86400, not '" + value + "'");
    }
    return static_cast<int>(number);
}

bool onOff(const std::string &name, const std::string &value) {
    if (value == "on" || value == "yes" || value == "true" || value == "1") {
        return true;
    }
    if (value == "off" || value == "no" || value == "false" || value == "0") {
        return false;
    }
    throw std::invalid_argument(name + " needs on or off, not '" + value + "'");
}

std::string trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

DirectoryPolicy KeeperConfig::parseDirectory(const std::string &text) {
    std::stringstream parts(text);
    DirectoryPolicy policy;
    std::getline(parts, policy.path, ',');
    if (policy.path.empty() || policy.path[0] != '/') {
        throw std::invalid_argument("a storage directory must be an absolute path, not '" +
                                    policy.path + "'");
    }
    while (policy.path.size() > 1 && policy.path.back() == '/') {
        policy.path.pop_back();
    }
    std::string setting;
    while (std::getline(parts, setting, ',')) {
        const size_t equals = setting.find('=');
        const std::string key = setting.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
        if (key == "free-mb") {
            policy.freeMb = positiveNumber(key, value);
        } else if (key == "total-gb") {
            policy.totalGb = positiveNumber(key, value);
        } else if (key == "age-days") {
            policy.ageDays = positiveNumber(key, value);
        } else {
            throw std::invalid_argument("unknown directory setting '" + setting +
                                        "' (free-mb, total-gb, age-days)");
        }
    }
    return policy;
}

void KeeperConfig::set(const std::string &name, const std::string &value) {
    if (name == "dir") {
        directories.push_back(parseDirectory(value));
    } else if (name == "db") {
        if (value.empty()) {
            throw std::invalid_argument("db needs a file name");
        }
        database = value;
    } else if (name == "service") {
        if (value.empty()) {
            throw std::invalid_argument("service needs a name");
        }
        service = value;
    } else if (name == "server-dir") {
        if (value.empty() || value[0] != '/') {
            throw std::invalid_argument("server-dir must be an absolute path, not '" + value + "'");
        }
        serverDir = value;
    } else if (name == "interval") {
        intervalSeconds = positiveInteger(name, value);
    } else if (name == "settle") {
        settleSeconds = positiveInteger(name, value);
    } else if (name == "verify") {
        verify = onOff(name, value);
    } else {
        throw std::invalid_argument("unknown setting '" + name + "'");
    }
}

void KeeperConfig::load(const std::string &file) {
    std::ifstream in(file);
    if (!in) {
        throw std::invalid_argument("cannot read " + file);
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = trimmed(line.substr(0, line.find('#')));
        if (line.empty()) {
            continue;
        }
        const size_t space = line.find_first_of(" \t");
        const std::string name = line.substr(0, space);
        const std::string value = space == std::string::npos ? "" : trimmed(line.substr(space + 1));
        try {
            set(name, value);
        } catch (const std::invalid_argument &error) {
            throw std::invalid_argument(file + ":" + std::to_string(number) + ": " + error.what());
        }
    }
}

}  // namespace dvrkeeper
