#include "ServiceMessage.h"

namespace system_extension {

namespace {

bool isValidField(const std::string &field, bool mayBeEmpty) {
    return (mayBeEmpty || !field.empty()) && field.size() <= ServiceMessage::kFieldMax &&
           field.find('\0') == std::string::npos;
}

}  // namespace

bool ServiceMessage::isValid() const {
    return isValidField(name, false) && isValidField(message, false) && isValidField(value, true);
}

std::string ServiceMessage::encode() const {
    std::string datagram = name;
    datagram += '\0';
    datagram += message;
    datagram += '\0';
    datagram += value;
    return datagram;
}

bool ServiceMessage::decode(const char *data, size_t length, ServiceMessage *decoded) {
    const std::string datagram(data, length);
    const size_t first = datagram.find('\0');
    if (first == std::string::npos) {
        return false;
    }
    const size_t second = datagram.find('\0', first + 1);
    if (second == std::string::npos) {
        return false;
    }
    ServiceMessage parsed{datagram.substr(0, first), datagram.substr(first + 1, second - first - 1),
                          datagram.substr(second + 1)};
    if (!parsed.isValid()) {
        return false;
    }
    *decoded = std::move(parsed);
    return true;
}

}  // namespace system_extension
