#include "DVRCallbackAdapter.h"

namespace dvrspace {

int DVRCallbackAdapter::onRecordStart(int, int, const char *) {
    return 0;
}

int DVRCallbackAdapter::onRecordFinish(int, int, const char *) {
    return 0;
}

int DVRCallbackAdapter::onRecordError(int, int, int) {
    return 0;
}

int DVRCallbackAdapter::onRecordErrorSevere(int, int, int) {
    return 0;
}

int DVRCallbackAdapter::onRecordAbnormal(int, int, int) {
    return 0;
}

int DVRCallbackAdapter::getStampString(int, int, char *) {
    return 0;
}

int DVRCallbackAdapter::fileNameGenerator(int, int, char *, int) {
    return 0;
}

}  // namespace dvrspace
