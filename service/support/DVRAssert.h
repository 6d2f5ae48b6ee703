// The project's one assertion. Unlike assert() it is never compiled out: a
// broken invariant in a recorder must stop the process on a release build too.
#ifndef DVR_ASSERT_H
#define DVR_ASSERT_H

// Logs "Assertion failed: <condition>, file <source file>, line <n>" under the
// tag "DVRAssert" and aborts. Any thread may call it.
[[noreturn]] void dvr_assert_fail(const char *condition, const char *file, int line);

#define DVR_ASSERT(cond)                                \
    do {                                                \
        if (!(cond)) {                                  \
            dvr_assert_fail(#cond, __FILE__, __LINE__); \
        }                                               \
    } while (0)

#endif  // DVR_ASSERT_H
