// The fixed moment the guard tests predict names at, in UTC: 2023-11-14
// 22:13:20. Setting TZ makes localtime() deterministic in the test process.
#ifndef DVR_TEST_GUARD_UTC_TIME_H
#define DVR_TEST_GUARD_UTC_TIME_H

#include <cstdlib>
#include <ctime>

namespace dvrtest {

inline std::time_t utcTestTime() {
    setenv("TZ", "UTC", 1);
    tzset();
    return 1700000000;
}

}  // namespace dvrtest

#endif  // DVR_TEST_GUARD_UTC_TIME_H
