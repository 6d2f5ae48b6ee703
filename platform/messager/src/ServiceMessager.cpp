#include "ServiceMessager.h"

#include "HostServiceMessager.h"

namespace system_extension {

ServiceMessager *ServiceMessager::create() {
    return HostServiceMessager::create();
}

void ServiceMessager::destroy(ServiceMessager *messager) {
    // Every messager comes from create(), so it is a HostServiceMessager.
    if (messager != nullptr) {
        static_cast<HostServiceMessager *>(messager)->destroy();
    }
}

}  // namespace system_extension
