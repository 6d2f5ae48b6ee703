// One message on the system message channel and its form on the wire: the
// three texts separated by NUL bytes in one datagram.
#ifndef SYSTEM_EXTENSION_SERVICE_MESSAGE_H
#define SYSTEM_EXTENSION_SERVICE_MESSAGE_H

#include <cstddef>
#include <string>

namespace system_extension {

struct ServiceMessage {
    // Longest text of each field in bytes.
    static constexpr size_t kFieldMax = 255;

    std::string name;     // the service it is about, e.g. "dvr_server"
    std::string message;  // e.g. "hibernationstate"
    std::string value;    // e.g. "suspendbegin"

    // A name and a message of 1 to kFieldMax bytes, a value of at most
    // kFieldMax bytes; no field holds a NUL.
    bool isValid() const;
    // The datagram; the message must be valid.
    std::string encode() const;
    // Fills *decoded from a datagram; false (nothing changed) when it is not
    // exactly three valid fields.
    static bool decode(const char *data, size_t length, ServiceMessage *decoded);
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_SERVICE_MESSAGE_H
