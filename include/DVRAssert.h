// The project's one assertion. Unlike assert() it is never compiled out: a
// broken invariant in a recorder must stop the process on a release build too.
// Public because the public queue template asserts too; needs liblog.
#ifndef DVR_ASSERT_H
#define DVR_ASSERT_H

#include <android/log.h>

#include <cstdlib>
#include <cstring>

// Logs "Assertion failed: <condition>, file <source file>, line <n>" under the
// tag "DVRAssert" and aborts. Any thread may call it.
[[noreturn]] inline void dvr_assert_fail(const char *condition, const char *file, int line) {
    const char *slash = std::strrchr(file, '/');
    __android_log_print(ANDROID_LOG_FATAL, "DVRAssert", "Assertion failed: %s, file %s, line %d",
                        condition, slash != nullptr ? slash + 1 : file, line);
    std::abort();
}

#define DVR_ASSERT(cond) DVR_ASSERT_TEXT(cond, #cond)

// The source an assertion names: the file it stands in. A class implemented
// in several files may name its main file instead, by redefining this after
// its last include (headers included later would name that file too).
#ifndef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE __FILE__
#endif

// For a condition whose logged text must differ from the C++ expression (a
// cast, or a field that this code names differently): logs `text` instead.
#define DVR_ASSERT_TEXT(cond, text)                             \
    do {                                                        \
        if (!(cond)) {                                          \
            dvr_assert_fail(text, DVR_ASSERT_SOURCE, __LINE__); \
        }                                                       \
    } while (0)

#endif  // DVR_ASSERT_H
