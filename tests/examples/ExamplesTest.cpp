// The client examples as an application developer builds them: against the
// installed package, with find_package(dvr) and with pkg-config, then run
// against a live dvr_server.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "CommandResult.h"
#include "RecordingReader.h"
#include "ServerProcess.h"
#include "TempDir.h"

namespace {

using dvrtest::ServerProcess;

const std::string kExamples = std::string(DVR_SOURCE_DIR) + "/examples";

// Runs command and fails the test with its output when it fails.
dvrtest::CommandResult mustRun(const std::string &command) {
    const dvrtest::CommandResult result = dvrtest::runCommand(command);
    EXPECT_EQ(0, result.status) << command << "\n" << result.out << result.err;
    return result;
}

std::string installPackage(const dvrtest::TempDir &dir) {
    const std::string prefix = dir.file("prefix");
    mustRun(std::string(DVR_CMAKE_COMMAND) + " --install " + DVR_BINARY_DIR + " --prefix " +
            prefix);
    return prefix;
}

std::string pkgConfig(const std::string &prefix, const std::string &what) {
    return "$(PKG_CONFIG_PATH=" + prefix + "/lib/pkgconfig pkg-config " + what + " dvr-client)";
}

// Builds the examples with CMake into dir/cmake and with pkg-config into
// dir/pc.
void buildExamples(const dvrtest::TempDir &dir, const std::string &prefix) {
    const std::string cmake = DVR_CMAKE_COMMAND;
    mustRun(cmake + " -S " + kExamples + " -B " + dir.file("cmake") +
            " -G Ninja -DCMAKE_PREFIX_PATH=" + prefix +
            " \"-DCMAKE_CXX_FLAGS=" + DVR_EXAMPLE_FLAGS + "\"");
    mustRun(cmake + " --build " + dir.file("cmake"));
    mkdir(dir.file("pc").c_str(), 0755);
    for (const std::string example : {"event_printer", "recorder_controller"}) {
        mustRun(std::string(DVR_CXX_COMPILER) + " -std=c++17 -Wall -Wextra -Werror " +
                DVR_EXAMPLE_FLAGS + " " + kExamples + "/" + example + ".cpp -o " +
                dir.file("pc/dvr_" + example) + " " + pkgConfig(prefix, "--cflags --libs"));
    }
}

// Records one two-second file on channel 0 with the controller while the
// printer listens; returns what each printed.
struct Outputs {
    std::string controller;
    std::string printer;
};

Outputs recordWith(const ServerProcess &server, const std::string &printer,
                   const std::string &controller, const std::string &file) {
    const std::string printerOut = server.dir().file("printer.out");
    const std::string printerErr = server.dir().file("printer.err");
    // The printer is subscribed before the controller starts the recording.
    const dvrtest::CommandResult result = mustRun(
        "timeout 60 " + printer + " 2 >" + printerOut + " 2>" + printerErr + " & printer=$!; " +
        "for i in $(seq 300); do grep -q listening " + printerErr + " && break; sleep 0.1; done; " +
        "timeout 60 " + controller + " " + std::to_string(ServerProcess::kEncoderIds[0]) + " " +
        std::to_string(ServerProcess::kCameraIds[0]) + " " + file + " 2 && wait $printer && cat " +
        printerOut);
    const size_t printed = result.out.find("encoder ");
    return {result.out.substr(0, printed),
            printed == std::string::npos ? "" : result.out.substr(printed)};
}

TEST(ClientExamples, BuiltWithFindPackageAndWithPkgConfigTheyPrintAStartAndAFinishEvent) {
    dvrtest::TempDir build;
    const std::string prefix = installPackage(build);
    ASSERT_FALSE(HasFailure());
    buildExamples(build, prefix);
    ASSERT_FALSE(HasFailure());

    ServerProcess server;
    server.start();
    ASSERT_NE(nullptr, server.connect());
    mkdir(server.storageDir().c_str(), 0755);
    const std::string enc = std::to_string(ServerProcess::kEncoderIds[0]);
    // The pkg-config printer watches the CMake controller, then the other way
    // round.
    const struct {
        std::string printer;
        std::string controller;
        std::string file;
    } runs[] = {
        {build.file("pc/dvr_event_printer"), build.file("cmake/dvr_recorder_controller"),
         server.storageDir() + "/a.ts"},
        {build.file("cmake/dvr_event_printer"), build.file("pc/dvr_recorder_controller"),
         server.storageDir() + "/b.ts"},
    };
    for (const auto &run : runs) {
        const Outputs outputs = recordWith(server, run.printer, run.controller, run.file);
        EXPECT_EQ("start " + run.file + "\nfinish " + run.file + "\n", outputs.controller);
        EXPECT_EQ("encoder " + enc + " start " + run.file + "\nencoder " + enc + " finish " +
                      run.file + "\n",
                  outputs.printer);
        // Two seconds of a 10 fps camera, less what a busy machine takes to
        // start the encoder.
        const dvrspace::RecordingInfo info = dvrspace::RecordingReader::read(run.file);
        ASSERT_TRUE(info.opened) << info.error;
        EXPECT_GE(info.videoFrames(), 10u);
        EXPECT_LE(info.videoFrames(), 30u);
    }
    EXPECT_EQ(std::string::npos, server.log().find("Assertion failed")) << server.log();
}

TEST(ClientExamples, AClientOfTheSdkSeesNoneOfTheServiceHeaders) {
    dvrtest::TempDir build;
    const std::string prefix = installPackage(build);
    ASSERT_FALSE(HasFailure());
    // The service's headers are installed, for integrators...
    struct stat status {};
    EXPECT_EQ(0, stat((prefix + "/include/dvr/service/DVR.h").c_str(), &status));
    // ...but neither pkg-config's flags nor dvr::client reach them.
    const dvrtest::CommandResult pc =
        dvrtest::runCommand("echo '#include \"DVR.h\"' | " + std::string(DVR_CXX_COMPILER) +
                            " -std=c++17 -fsyntax-only -x c++ - " + pkgConfig(prefix, "--cflags"));
    EXPECT_NE(0, pc.status);
    EXPECT_NE(std::string::npos, pc.err.find("DVR.h: No such file or directory")) << pc.err;
    const std::string cmake = DVR_CMAKE_COMMAND;
    mustRun(cmake + " -S " + DVR_PROBE_SOURCE_DIR + " -B " + build.file("probe") +
            " -G Ninja -DCMAKE_PREFIX_PATH=" + prefix);
    const dvrtest::CommandResult probe =
        dvrtest::runCommand(cmake + " --build " + build.file("probe"));
    EXPECT_NE(0, probe.status);
    EXPECT_NE(std::string::npos, probe.out.find("DVR.h: No such file or directory")) << probe.out;
    // What a client gets instead compiles with the same flags.
    mustRun("printf '#include \"DVRClient.h\"\\n#include \"DVRCallbackAdapter.h\"\\n' | " +
            std::string(DVR_CXX_COMPILER) + " -std=c++17 -fsyntax-only -x c++ - " +
            pkgConfig(prefix, "--cflags"));
}

}  // namespace
