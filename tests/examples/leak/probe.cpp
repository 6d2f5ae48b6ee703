// Must not compile against dvr::client: DVR.h is the service's own header.
#include "DVR.h"

int main() {
    return 0;
}
