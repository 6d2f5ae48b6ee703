// A test's service-state directory, played as the service manager would:
// states written and read through SvcStateDir, a failure failing the test
// with its reason. Any thread; holds nothing but the path.
#ifndef DVR_TEST_SERVICE_STATES_H
#define DVR_TEST_SERVICE_STATES_H

#include <string>
#include <utility>

namespace dvrtest {

class ServiceStates {
public:
    explicit ServiceStates(std::string dir) : mDir(std::move(dir)) {}

    // Points DVR_SVC_DIR at the directory: service monitors created afterwards
    // in this process watch it.
    void watchedByMonitors() const;
    // Writes the state of service; a failed write fails the test.
    void set(const std::string &service, const std::string &state) const;
    // The state service reads as; a failed read fails the test and gives unread.
    std::string get(const std::string &service, const std::string &unread = "") const;

private:
    std::string mDir;
};

}  // namespace dvrtest

#endif  // DVR_TEST_SERVICE_STATES_H
