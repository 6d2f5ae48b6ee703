// One interface method as a transaction: the proxy half (call) and the stub
// half (serve), both generated from the method's signature so that they read
// and write the same words in the same order.
//
// Request: interface token, then every parameter's in-part in order.
// Reply: the result, then every out-parameter's value in order.
#ifndef DVR_INTERFACE_REMOTE_METHOD_H
#define DVR_INTERFACE_REMOTE_METHOD_H

#include <android/log.h>
#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <tuple>
#include <utility>

#include "ParcelCodec.h"

namespace dvrspace {
namespace marshal {

template <typename Method>
struct RemoteMethod;

template <typename Interface, typename R, typename... A>
struct RemoteMethod<R (Interface::*)(A...)> {
    using Method = R (Interface::*)(A...);
    using Slots = std::tuple<typename Param<A>::Slot...>;

    // Runs on the caller's thread and blocks until the reply. Out-parameters
    // change only when the whole reply was read.
    static R call(android::IBinder *remote, uint32_t code, const char *name, A... args) {
        Parcel data;
        Parcel reply;
        status_t status = data.writeInterfaceToken(Interface::descriptor);
        ((status = status == OK ? Param<A>::writeIn(data, args) : status), ...);
        if (status == OK) {
            status = remote->transact(code, data, &reply);
        }
        R result = failedResult<R>();
        if (status == OK) {
            status = Value<R>::read(reply, &result);
        }
        Slots replied;
        if (status == OK) {
            status = readOut(reply, replied, std::index_sequence_for<A...>{}, args...);
        }
        if (status != OK) {
            __android_log_print(ANDROID_LOG_WARN, "DVRInterface", "%s::%s failed: %d\n",
                                android::String8(Interface::descriptor).c_str(), name, status);
            return failedResult<R>();
        }
        commit(replied, std::index_sequence_for<A...>{}, args...);
        return result;
    }

    // Runs on the pool thread that received the transaction. The request must
    // hold exactly the parameters, or the implementation is not called.
    static status_t serve(Interface &implementation, Method method, const Parcel &data,
                          Parcel *reply) {
        if (!data.enforceInterface(Interface::descriptor)) {
            return android::PERMISSION_DENIED;
        }
        Slots received;
        status_t status = readIn(data, received, std::index_sequence_for<A...>{});
        if (status != OK) {
            return status;
        }
        if (data.dataAvail() != 0) {
            return BAD_VALUE;
        }
        const R result = invoke(implementation, method, received, std::index_sequence_for<A...>{});
        if (reply == nullptr) {
            return OK;  // one-way: nobody waits for the result
        }
        status = Value<R>::write(*reply, result);
        if (status == OK) {
            status = writeOut(*reply, received, std::index_sequence_for<A...>{});
        }
        return status;
    }

private:
    template <size_t... N>
    static status_t readIn(const Parcel &data, Slots &slots, std::index_sequence<N...>) {
        status_t status = OK;
        ((status = status == OK ? Param<A>::readIn(data, &std::get<N>(slots)) : status), ...);
        return status;
    }

    template <size_t... N>
    static R invoke(Interface &implementation, Method method, Slots &slots,
                    std::index_sequence<N...>) {
        return (implementation.*method)(Param<A>::arg(std::get<N>(slots))...);
    }

    template <size_t... N>
    static status_t writeOut(Parcel &reply, const Slots &slots, std::index_sequence<N...>) {
        status_t status = OK;
        ((status = status == OK ? Param<A>::writeOut(reply, std::get<N>(slots)) : status), ...);
        return status;
    }

    template <size_t... N>
    static status_t readOut(const Parcel &reply, Slots &slots, std::index_sequence<N...>,
                            A... args) {
        status_t status = OK;
        ((status = status == OK ? Param<A>::readOut(reply, args, &std::get<N>(slots)) : status),
         ...);
        return status;
    }

    template <size_t... N>
    static void commit(const Slots &slots, std::index_sequence<N...>, A... args) {
        (Param<A>::commit(args, std::get<N>(slots)), ...);
    }
};

}  // namespace marshal
}  // namespace dvrspace

#endif  // DVR_INTERFACE_REMOTE_METHOD_H
