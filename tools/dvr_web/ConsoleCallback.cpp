#include "ConsoleCallback.h"

#include <chrono>

namespace dvrweb {

void ConsoleCallback::note(const char *type, int encId, const char *file, int value) {
    ConsoleEvent event;
    event.type = type;
    event.encId = encId;
    event.file = file != nullptr ? file : "";
    event.value = value;
    event.timeMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    mEvents.append(std::move(event));
}

int ConsoleCallback::onRecordStart(int, int index, const char *fileName) {
    note("record-start", index, fileName, 0);
    return 0;
}

int ConsoleCallback::onRecordFinish(int, int index, const char *fileName) {
    note("record-finish", index, fileName, 0);
    return 0;
}

int ConsoleCallback::onRecordError(int, int index, int errorCode) {
    note("error", index, nullptr, errorCode);
    return 0;
}

int ConsoleCallback::onRecordErrorSevere(int, int index, int errorCode) {
    note("error-severe", index, nullptr, errorCode);
    return 0;
}

int ConsoleCallback::onRecordAbnormal(int, int index, int value) {
    note("abnormal", index, nullptr, value);
    return 0;
}

}  // namespace dvrweb
