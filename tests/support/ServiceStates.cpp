#include "ServiceStates.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "SvcStateDir.h"

namespace dvrtest {

void ServiceStates::watchedByMonitors() const {
    setenv(SvcStateDir::kPathVariable, mDir.c_str(), 1);
}

void ServiceStates::set(const std::string &service, const std::string &state) const {
    std::string error;
    ASSERT_TRUE(SvcStateDir(mDir).write(service, state, &error)) << error;
}

std::string ServiceStates::get(const std::string &service, const std::string &unread) const {
    std::string state = unread;
    std::string error;
    EXPECT_TRUE(SvcStateDir(mDir).read(service, &state, &error)) << error;
    return state;
}

}  // namespace dvrtest
