// The console's callback object: every record, error and abnormal
// notification of the service goes into the event log. Binder pool threads.
#ifndef DVR_WEB_CONSOLE_CALLBACK_H
#define DVR_WEB_CONSOLE_CALLBACK_H

#include "DVRCallbackAdapter.h"
#include "EventLog.h"

namespace dvrweb {

class ConsoleCallback : public dvrspace::DVRCallbackAdapter {
public:
    explicit ConsoleCallback(EventLog &events) : mEvents(events) {}

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;

private:
    void note(const char *type, int encId, const char *file, int value);

    EventLog &mEvents;
};

}  // namespace dvrweb

#endif  // DVR_WEB_CONSOLE_CALLBACK_H
