// How each argument and result type of the interfaces travels in a Parcel.
// Proxy and stub both derive their wire format from the method's C++
// signature through these templates, so the two sides cannot disagree.
//
// Value<T> writes and reads one value. Param<P> describes a parameter of type
// P: what the proxy sends (writeIn), how the stub stores it (Slot) and hands
// it to the implementation (arg), and what travels back for out-parameters
// (writeOut on the stub, readOut + commit on the proxy).
#ifndef DVR_INTERFACE_PARCEL_CODEC_H
#define DVR_INTERFACE_PARCEL_CODEC_H

#include <binder/Parcel.h>

#include <cstdint>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "DVRTypes.h"
#include "IDVRCallback.h"

namespace dvrspace {
namespace marshal {

using android::BAD_VALUE;
using android::OK;
using android::Parcel;
using android::status_t;

// Writes each value in order; stops at the first failure.
template <typename... T>
status_t writeFields(Parcel &parcel, const T &...values);
// Reads each value in order; stops at the first failure.
template <typename... T>
status_t readFields(const Parcel &parcel, T *...values);

template <typename T, typename Enable = void>
struct Value;

// Integers and enumerations travel as one 32-bit word whatever their value:
// range checks are the service's business, so an out-of-range enumeration
// reaches it and gets its documented answer.
template <typename T>
struct Value<T, std::enable_if_t<std::is_enum_v<T> || std::is_same_v<T, int32_t> ||
                                 std::is_same_v<T, uint32_t>>> {
    static_assert(sizeof(T) == sizeof(int32_t), "32-bit values only");
    static status_t write(Parcel &parcel, T value) {
        return parcel.writeInt32(static_cast<int32_t>(value));
    }
    static status_t read(const Parcel &parcel, T *value) {
        int32_t word = 0;
        const status_t status = parcel.readInt32(&word);
        if (status == OK) {
            *value = static_cast<T>(word);
        }
        return status;
    }
};

// Narrow values travel as a word too, but a word outside their range is
// malformed rather than a value for the service to judge.
template <typename T, int32_t kMin, int32_t kMax>
struct NarrowValue {
    static status_t write(Parcel &parcel, T value) {
        return parcel.writeInt32(static_cast<int32_t>(value));
    }
    static status_t read(const Parcel &parcel, T *value) {
        int32_t word = 0;
        const status_t status = parcel.readInt32(&word);
        if (status != OK) {
            return status;
        }
        if (word < kMin || word > kMax) {
            return BAD_VALUE;
        }
        *value = static_cast<T>(word);
        return OK;
    }
};

template <>
struct Value<bool> : NarrowValue<bool, 0, 1> {};
template <>
struct Value<uint8_t> : NarrowValue<uint8_t, 0, UINT8_MAX> {};

template <>
struct Value<uint64_t> {
    static status_t write(Parcel &parcel, uint64_t value) {
        return parcel.writeInt64(static_cast<int64_t>(value));
    }
    static status_t read(const Parcel &parcel, uint64_t *value) {
        int64_t word = 0;
        const status_t status = parcel.readInt64(&word);
        if (status == OK) {
            *value = static_cast<uint64_t>(word);
        }
        return status;
    }
};

// Records travel field by field, never as raw memory, so padding bytes stay
// behind and the format does not depend on either side's layout.
template <>
struct Value<QVStampSettings_t> {
    static status_t write(Parcel &parcel, const QVStampSettings_t &stamp) {
        return writeFields(parcel, stamp.enabled, stamp.x, stamp.y, stamp.fontSize, stamp.color,
                           stamp.interval);
    }
    static status_t read(const Parcel &parcel, QVStampSettings_t *stamp) {
        return readFields(parcel, &stamp->enabled, &stamp->x, &stamp->y, &stamp->fontSize,
                          &stamp->color, &stamp->interval);
    }
};

template <>
struct Value<CameraDeviceCaps_t> {
    static status_t write(Parcel &parcel, const CameraDeviceCaps_t &caps) {
        return writeFields(parcel, caps.width, caps.height, caps.stride, caps.format);
    }
    static status_t read(const Parcel &parcel, CameraDeviceCaps_t *caps) {
        return readFields(parcel, &caps->width, &caps->height, &caps->stride, &caps->format);
    }
};

template <>
struct Value<AudioDeviceCaps_t> {
    static status_t write(Parcel &parcel, const AudioDeviceCaps_t &caps) {
        return writeFields(parcel, caps.caps[0], caps.caps[1]);
    }
    static status_t read(const Parcel &parcel, AudioDeviceCaps_t *caps) {
        return readFields(parcel, &caps->caps[0], &caps->caps[1]);
    }
};

template <>
struct Value<EncoderDeviceCaps_t> {
    static status_t write(Parcel &parcel, const EncoderDeviceCaps_t &caps) {
        return writeFields(parcel, caps.file_name_length_limit, caps.max_width, caps.max_height,
                           caps.max_file_length, caps.min_file_length, caps.max_bit_rate,
                           caps.min_bit_rate, caps.max_frame_rate, caps.min_frame_rate);
    }
    static status_t read(const Parcel &parcel, EncoderDeviceCaps_t *caps) {
        return readFields(parcel, &caps->file_name_length_limit, &caps->max_width,
                          &caps->max_height, &caps->max_file_length, &caps->min_file_length,
                          &caps->max_bit_rate, &caps->min_bit_rate, &caps->max_frame_rate,
                          &caps->min_frame_rate);
    }
};

template <>
struct Value<SnapshotPA_t> {
    static status_t write(Parcel &parcel, const SnapshotPA_t &snapshot) {
        return writeFields(parcel, snapshot.planePA[0], snapshot.planePA[1], snapshot.width,
                           snapshot.height, snapshot.stride, snapshot.timestamp);
    }
    static status_t read(const Parcel &parcel, SnapshotPA_t *snapshot) {
        return readFields(parcel, &snapshot->planePA[0], &snapshot->planePA[1], &snapshot->width,
                          &snapshot->height, &snapshot->stride, &snapshot->timestamp);
    }
};

// A count, then the elements. The count is checked against the bytes left
// before anything is allocated, so a forged count cannot exhaust memory.
template <typename Container>
struct SequenceValue {
    using Element = typename Container::value_type;

    static status_t write(Parcel &parcel, const Container &elements) {
        status_t status = parcel.writeInt32(static_cast<int32_t>(elements.size()));
        for (auto it = elements.begin(); status == OK && it != elements.end(); ++it) {
            status = Value<Element>::write(parcel, *it);
        }
        return status;
    }
    static status_t read(const Parcel &parcel, Container *elements) {
        int32_t count = 0;
        status_t status = parcel.readInt32(&count);
        if (status != OK) {
            return status;
        }
        if (count < 0 || static_cast<size_t>(count) > parcel.dataAvail() / sizeof(int32_t)) {
            return BAD_VALUE;
        }
        Container received;
        for (int32_t i = 0; i < count; ++i) {
            Element element{};
            status = Value<Element>::read(parcel, &element);
            if (status != OK) {
                return status;
            }
            received.insert(received.end(), element);
        }
        *elements = std::move(received);
        return OK;
    }
};

template <>
struct Value<std::vector<int32_t>> : SequenceValue<std::vector<int32_t>> {};
template <>
struct Value<std::set<uint32_t>> : SequenceValue<std::set<uint32_t>> {};

// A null marker, then the text. Null and empty are different things to the
// service (a null file-name format resets it, an empty one is rejected).
struct NullableText {
    static status_t write(Parcel &parcel, const char *text) {
        status_t status = parcel.writeInt32(text != nullptr ? 1 : 0);
        if (status == OK && text != nullptr) {
            status = parcel.writeCString(text);
        }
        return status;
    }
    // present is false for a null text.
    static status_t read(const Parcel &parcel, bool *present, std::string *text) {
        status_t status = Value<bool>::read(parcel, present);
        if (status != OK || !*present) {
            return status;
        }
        const char *received = parcel.readCString();
        if (received == nullptr) {
            return BAD_VALUE;
        }
        *text = received;
        return OK;
    }
};

// A client's callback object travels as a binder reference; it arrives in the
// service as a proxy that calls back over the same connection.
template <>
struct Value<android::sp<IDVRCallback>> {
    static status_t write(Parcel &parcel, const android::sp<IDVRCallback> &callback) {
        return parcel.writeStrongBinder(android::IInterface::asBinder(callback));
    }
    static status_t read(const Parcel &parcel, android::sp<IDVRCallback> *callback) {
        android::sp<android::IBinder> binder;
        const status_t status = parcel.readNullableStrongBinder(&binder);
        if (status == OK) {
            *callback = android::interface_cast<IDVRCallback>(binder);
        }
        return status;
    }
};

template <typename... T>
status_t writeFields(Parcel &parcel, const T &...values) {
    status_t status = OK;
    ((status = status == OK ? Value<T>::write(parcel, values) : status), ...);
    return status;
}

template <typename... T>
status_t readFields(const Parcel &parcel, T *...values) {
    status_t status = OK;
    ((status = status == OK ? Value<T>::read(parcel, values) : status), ...);
    return status;
}

// By-value parameters: in only.
template <typename P, typename Enable = void>
struct Param {
    using Slot = P;
    static status_t writeIn(Parcel &parcel, P value) { return Value<P>::write(parcel, value); }
    static status_t readIn(const Parcel &parcel, Slot *slot) {
        return Value<P>::read(parcel, slot);
    }
    static P arg(Slot &slot) { return slot; }
    static status_t writeOut(Parcel &, const Slot &) { return OK; }
    static status_t readOut(const Parcel &, P, Slot *) { return OK; }
    static void commit(P, const Slot &) {}
};

// Pointer parameters: in and out, with a null marker. The stub hands the
// implementation a null pointer exactly when the client passed one, and only
// a non-null pointer's value comes back.
template <typename T>
struct Param<T *> {
    struct Slot {
        bool present = false;
        T value{};
    };
    static status_t writeIn(Parcel &parcel, const T *value) {
        status_t status = Value<bool>::write(parcel, value != nullptr);
        if (status == OK && value != nullptr) {
            status = Value<T>::write(parcel, *value);
        }
        return status;
    }
    static status_t readIn(const Parcel &parcel, Slot *slot) {
        status_t status = Value<bool>::read(parcel, &slot->present);
        if (status == OK && slot->present) {
            status = Value<T>::read(parcel, &slot->value);
        }
        return status;
    }
    static T *arg(Slot &slot) { return slot.present ? &slot.value : nullptr; }
    static status_t writeOut(Parcel &parcel, const Slot &slot) {
        return slot.present ? Value<T>::write(parcel, slot.value) : OK;
    }
    static status_t readOut(const Parcel &parcel, const T *value, Slot *slot) {
        slot->present = value != nullptr;
        return slot->present ? Value<T>::read(parcel, &slot->value) : OK;
    }
    static void commit(T *value, const Slot &slot) {
        if (slot.present) {
            *value = slot.value;
        }
    }
};

// Text parameters: in only, null kept apart from empty.
template <>
struct Param<const char *> {
    struct Slot {
        bool present = false;
        std::string text;
    };
    static status_t writeIn(Parcel &parcel, const char *text) {
        return NullableText::write(parcel, text);
    }
    static status_t readIn(const Parcel &parcel, Slot *slot) {
        return NullableText::read(parcel, &slot->present, &slot->text);
    }
    static const char *arg(Slot &slot) { return slot.present ? slot.text.c_str() : nullptr; }
    static status_t writeOut(Parcel &, const Slot &) { return OK; }
    static status_t readOut(const Parcel &, const char *, Slot *) { return OK; }
    static void commit(const char *, const Slot &) {}
};

// Non-const references: in and out.
template <typename T>
struct Param<T &> {
    using Slot = T;
    static status_t writeIn(Parcel &parcel, const T &value) {
        return Value<T>::write(parcel, value);
    }
    static status_t readIn(const Parcel &parcel, Slot *slot) {
        return Value<T>::read(parcel, slot);
    }
    static T &arg(Slot &slot) { return slot; }
    static status_t writeOut(Parcel &parcel, const Slot &slot) {
        return Value<T>::write(parcel, slot);
    }
    static status_t readOut(const Parcel &parcel, const T &, Slot *slot) {
        return Value<T>::read(parcel, slot);
    }
    static void commit(T &value, const Slot &slot) { value = slot; }
};

// Const references: in only.
template <typename T>
struct Param<const T &> {
    using Slot = T;
    static status_t writeIn(Parcel &parcel, const T &value) {
        return Value<T>::write(parcel, value);
    }
    static status_t readIn(const Parcel &parcel, Slot *slot) {
        return Value<T>::read(parcel, slot);
    }
    static const T &arg(Slot &slot) { return slot; }
    static status_t writeOut(Parcel &, const Slot &) { return OK; }
    static status_t readOut(const Parcel &, const T &, Slot *) { return OK; }
    static void commit(const T &, const Slot &) {}
};

// What a proxy returns when the call did not go through.
template <typename R>
R failedResult() {
    if constexpr (std::is_same_v<R, bool>) {
        return false;
    } else if constexpr (std::is_enum_v<R> || std::is_integral_v<R>) {
        return static_cast<R>(-1);
    } else {
        return R{};
    }
}

}  // namespace marshal
}  // namespace dvrspace

#endif  // DVR_INTERFACE_PARCEL_CODEC_H
