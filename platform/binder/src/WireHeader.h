// The header of every message on a binder socket. Both ends run on the same
// machine, so fields are in host byte order. A message is the header, then
// dataSize bytes of parcel data, then objectCount uint32 offsets of the binder
// references inside the data.
#ifndef DVR_BINDER_WIRE_HEADER_H
#define DVR_BINDER_WIRE_HEADER_H

#include <cstddef>
#include <cstdint>

namespace android {
namespace binder_internal {

struct WireHeader {
    enum Kind : uint32_t {
        // id: the sender's call id; target: the receiver's object handle;
        // nestedIn: the receiver's call this one is made from inside (0: none);
        // code and flags as given to transact.
        kTransaction = 1,
        // id: the call answered; code: its status.
        kReply = 2,
        // target: a handle of the receiver that the sender no longer uses;
        // id: how many references to it the sender had received.
        kRelease = 3,
    };

    // Type word of a binder reference on the wire (the parcel's kObject is
    // replaced by one of these when sent).
    enum ObjectType : uint32_t {
        kSenderObject = 1,    // lives in the sender, handle in the sender's table
        kReceiverObject = 2,  // lives in the receiver, handle in its own table
    };

    static constexpr uint32_t kMagic = 0x44425231;  // "DBR1"
    // Largest message, header and offsets included. Well below the socket's
    // send buffer, so a message is always sent whole.
    static constexpr size_t kMaxMessageSize = 128 * 1024;

    uint32_t magic;
    uint32_t kind;
    uint64_t id;
    uint64_t target;
    uint64_t nestedIn;
    uint32_t code;
    uint32_t flags;
    uint32_t dataSize;
    uint32_t objectCount;
};

static_assert(sizeof(WireHeader) == 48, "wire header layout");

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_WIRE_HEADER_H
