// Points DVR_BINDER_DIR at a fresh directory for one test and starts this
// process's thread pool, so tests never share sockets.
#ifndef DVR_TEST_BINDER_TEST_DIRECTORY_H
#define DVR_TEST_BINDER_TEST_DIRECTORY_H

#include "TempDir.h"

#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace dvrtest {

class BinderTestDirectory : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DVR_BINDER_DIR", mDirectory.path().c_str(), 1);
        android::ProcessState::self()->startThreadPool();
    }

    std::string socketPath(const std::string &name) const { return mDirectory.file(name); }

    static constexpr const char *kServiceName = "test.service";

private:
    TempDir mDirectory;
};

}  // namespace dvrtest

#endif  // DVR_TEST_BINDER_TEST_DIRECTORY_H
