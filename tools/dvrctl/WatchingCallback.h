// dvrctl's callback object: hands every notification from the service to a
// listener and answers the two queries with the texts it was given (or
// leaves the service's buffer untouched when it has none). Its methods run on
// this process's binder pool threads, possibly several at once; the listener
// must be thread safe.
#ifndef DVRCTL_WATCHING_CALLBACK_H
#define DVRCTL_WATCHING_CALLBACK_H

#include <atomic>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

#include "DVRCallbackAdapter.h"
#include "DVRTypes.h"

namespace dvrctl {

class WatchingCallback : public dvrspace::DVRCallbackAdapter {
public:
    struct Answers {
        // Both are strftime formats of the local time at the query; the file
        // name also replaces "%i" by the number of names answered so far,
        // this one included.
        std::optional<std::string> stamp;
        std::optional<std::string> fileName;
    };

    struct Notification {
        dvrspace::DVRCbkObjType_e type;
        dvrspace::DVR_CbkCmd_e cmd;
        int cbkId;
        int encId;
        std::optional<std::string> fileName;  // record start and finish only
        int value;                            // error code or abnormal value
    };

    using Listener = std::function<void(const Notification &)>;

    // listener may be empty: notifications are then only acknowledged.
    WatchingCallback(Answers answers, Listener listener);

    // pattern with "%i" replaced by number, then through strftime at time now.
    static std::string expand(const std::string &pattern, int number, std::time_t now);

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;
    int getStampString(int cbkId, int index, char *buffer) override;
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;

private:
    int notify(const Notification &notification);

    const Answers mAnswers;
    const Listener mListener;
    std::atomic<int> mFileNamesAnswered{0};
};

}  // namespace dvrctl

#endif  // DVRCTL_WATCHING_CALLBACK_H
