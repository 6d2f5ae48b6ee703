// The text of an FFmpeg error code, for the reader's and the repair's
// messages. Private to the recinfo library.
#ifndef DVR_AV_ERROR_TEXT_H
#define DVR_AV_ERROR_TEXT_H

extern "C" {
#include <libavutil/error.h>
}

#include <string>

namespace dvrspace {

inline std::string avErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

}  // namespace dvrspace

#endif  // DVR_AV_ERROR_TEXT_H
