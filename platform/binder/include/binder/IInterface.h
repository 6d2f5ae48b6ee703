// IInterface and the templates that tie an interface to the binder
// transport: BnInterface (the service side, a BBinder), BpInterface (the
// proxy side), interface_cast, and the meta-interface macros. Laid out as in
// libbinder so interface code written against it compiles unchanged.
#ifndef DVR_BINDER_IINTERFACE_H
#define DVR_BINDER_IINTERFACE_H

#include <binder/Binder.h>

namespace android {

class IInterface : public virtual RefBase {
public:
    IInterface();
    static sp<IBinder> asBinder(const IInterface *iface);
    static sp<IBinder> asBinder(const sp<IInterface> &iface);

protected:
    ~IInterface() override;
    virtual IBinder *onAsBinder() = 0;
};

// The interface behind `obj`: the object itself when local, a new proxy
// otherwise; null for a null `obj`.
template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder> &obj) {
    return INTERFACE::asInterface(obj);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16 &descriptor) override;
    const String16 &getInterfaceDescriptor() const override;

protected:
    typedef INTERFACE BaseInterface;
    IBinder *onAsBinder() override;
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder> &remote);

protected:
    typedef INTERFACE BaseInterface;
    IBinder *onAsBinder() override;
};

#define DECLARE_META_INTERFACE(INTERFACE)                                                         \
public:                                                                                           \
    static const ::android::String16 descriptor;                                                  \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder> &obj); \
    virtual const ::android::String16 &getInterfaceDescriptor() const;                            \
    I##INTERFACE();                                                                               \
    virtual ~I##INTERFACE();

#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                             \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                 \
    const ::android::String16 &I##INTERFACE::getInterfaceDescriptor() const { \
        return I##INTERFACE::descriptor;                                      \
    }                                                                         \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                    \
        const ::android::sp<::android::IBinder> &obj) {                       \
        ::android::sp<I##INTERFACE> intr;                                     \
        if (obj != nullptr) {                                                 \
            intr = static_cast<I##INTERFACE *>(                               \
                obj->queryLocalInterface(I##INTERFACE::descriptor).get());    \
            if (intr == nullptr) {                                            \
                intr = new Bp##INTERFACE(obj);                                \
            }                                                                 \
        }                                                                     \
        return intr;                                                          \
    }                                                                         \
    I##INTERFACE::I##INTERFACE() {}                                           \
    I##INTERFACE::~I##INTERFACE() {}

// In onTransact: refuse the call with PERMISSION_DENIED unless `data` starts
// with this interface's token.
#define CHECK_INTERFACE(interface, data, reply)  \
    do {                                         \
        if (!(data).checkInterface(this)) {      \
            return ::android::PERMISSION_DENIED; \
        }                                        \
    } while (false)

template <typename INTERFACE>
inline sp<IInterface> BnInterface<INTERFACE>::queryLocalInterface(const String16 &descriptor) {
    if (descriptor == INTERFACE::descriptor) {
        return this;
    }
    return nullptr;
}

template <typename INTERFACE>
inline const String16 &BnInterface<INTERFACE>::getInterfaceDescriptor() const {
    return INTERFACE::getInterfaceDescriptor();
}

template <typename INTERFACE>
IBinder *BnInterface<INTERFACE>::onAsBinder() {
    return this;
}

template <typename INTERFACE>
inline BpInterface<INTERFACE>::BpInterface(const sp<IBinder> &remote) : BpRefBase(remote) {}

template <typename INTERFACE>
inline IBinder *BpInterface<INTERFACE>::onAsBinder() {
    return remote();
}

}  // namespace android

#endif  // DVR_BINDER_IINTERFACE_H
