// Each refusal of the client-side guard with its exact reason, and the
// requests it lets through.
#include <gtest/gtest.h>

#include "RequestGuard.h"
#include "UtcTime.h"

using dvrguard::ChannelNaming;
using dvrguard::RequestGuard;

namespace {

ChannelNaming tsMinuteFiles() {
    ChannelNaming naming;
    naming.format = 1;
    naming.fileLengthS = 60;
    naming.fileNameLengthLimit = 255;
    return naming;
}

}  // namespace

TEST(RequestGuard, SetResolutionOtherThanDefaultWithACameraIsRefused) {
    EXPECT_EQ(
        "channel 100 has a camera attached, and the service accepts only 'default' (follow the "
        "camera): it answers -2 and leaves the channel's settings lock held, so every later "
        "setter on channel 100 hangs and the server no longer stops on SIGTERM",
        RequestGuard::setResolution(100, 2, true).value_or(""));
    EXPECT_TRUE(RequestGuard::setResolution(100, 1, true));
    EXPECT_TRUE(RequestGuard::setResolution(100, 3, true));
}

TEST(RequestGuard, SetResolutionThatTheServiceAnswersBeforeLockingPasses) {
    EXPECT_FALSE(RequestGuard::setResolution(100, 0, true));
    EXPECT_FALSE(RequestGuard::setResolution(100, 4, true));
    EXPECT_FALSE(RequestGuard::setResolution(100, -1, true));
    EXPECT_FALSE(RequestGuard::setResolution(100, 2, false));
}

TEST(RequestGuard, FontSizeAboveFourIsRefused) {
    EXPECT_EQ("font size 5 is not 0 to 4: setTimestamp aborts the service",
              RequestGuard::stampCodes("setTimestamp", 5, 1).value_or(""));
    EXPECT_TRUE(RequestGuard::stampCodes("setTimestamp", -1, 1));
}

TEST(RequestGuard, ColourOutsideZeroToEightIsRefused) {
    EXPECT_EQ("colour 20 is not 0 to 8: the service aborts at the first stamped frame",
              RequestGuard::stampCodes("setSelfDefinedStamp", 0, 20).value_or(""));
    EXPECT_TRUE(RequestGuard::stampCodes("setTimestamp", 0, 9));
}

TEST(RequestGuard, EveryAcceptedStampCodePasses) {
    for (int size = 0; size <= 4; ++size) {
        for (int colour = 0; colour <= 8; ++colour) {
            EXPECT_FALSE(RequestGuard::stampCodes("setTimestamp", size, colour))
                << size << " " << colour;
        }
    }
}

TEST(RequestGuard, StartRecordWithAudioOnAndNoAudioInputIsRefused) {
    EXPECT_EQ(
        "channel 101 records audio but has no audio input attached: the service aborts when "
        "the recording starts (attachAudio 101 AUD_ID, or setAudioRecording 101 off)",
        RequestGuard::startRecord(101, 2, true, false).value_or(""));
    EXPECT_FALSE(RequestGuard::startRecord(101, 2, true, true));
    EXPECT_FALSE(RequestGuard::startRecord(101, 2, false, false));
}

TEST(RequestGuard, StartOfAChannelThatIsNotReadyPasses) {
    // The service answers -3 without starting anything.
    EXPECT_FALSE(RequestGuard::startRecord(101, 1, true, false));
    EXPECT_FALSE(RequestGuard::startRecord(101, 3, true, false));
}

TEST(RequestGuard, AutoNextFileOnBeforeRecordingIsRefused) {
    const std::string reason =
        "unless a client answers file names (for example 'dvrctl watch --file-name NAME'), the "
        "first startRecord of channel 100 aborts the service (its default name needs a file "
        "length the channel has not started with yet); add --force when a client answers names";
    EXPECT_EQ(reason, RequestGuard::autoNextFile(100, true, 1).value_or(""));
    EXPECT_EQ(reason, RequestGuard::autoNextFile(100, true, 2).value_or(""));
    EXPECT_FALSE(RequestGuard::autoNextFile(100, true, 3));
    EXPECT_FALSE(RequestGuard::autoNextFile(100, false, 1));
}

TEST(RequestGuard, LongStoragePathIsRefusedWithWhatTheNamesBecome) {
    const std::string path = "/home/user/projects/dvr/recordings/c";
    EXPECT_EQ(
        "the service would cut or mangle the default names in '" + path +
            "' (it cuts a default name before its times at 63 characters and the path at "
            "its first %, S or T): '" +
            path + "/default_c100_[20231114_22-13-20]_[20231114_22-14-20].ts' would become '" +
            path + "/default_c100_[20231114_22-13-20]_[20231114_22-14-20].t'",
        RequestGuard::storagePath(100, path, tsMinuteFiles(), dvrtest::utcTestTime()).value_or(""));
}

TEST(RequestGuard, StoragePathWithAPatternLetterIsRefused) {
    EXPECT_TRUE(
        RequestGuard::storagePath(100, "/data/TMP", tsMinuteFiles(), dvrtest::utcTestTime()));
    EXPECT_TRUE(
        RequestGuard::storagePath(100, "/data/a%b", tsMinuteFiles(), dvrtest::utcTestTime()));
}

TEST(RequestGuard, ShortPlainStoragePathPasses) {
    EXPECT_FALSE(
        RequestGuard::storagePath(100, "/tmp/rec/ch0", tsMinuteFiles(), dvrtest::utcTestTime()));
    EXPECT_FALSE(RequestGuard::storagePath(100, "", tsMinuteFiles(), dvrtest::utcTestTime()));
    // Too long for the service: answered -2 with nothing changed.
    EXPECT_FALSE(RequestGuard::storagePath(100, std::string(300, 'a'), tsMinuteFiles(),
                                           dvrtest::utcTestTime()));
}

TEST(RequestGuard, PatternThatTheServiceMangelsIsRefusedWithWhatTheNamesBecome) {
    EXPECT_EQ(
        "the service would mangle the names of 'CAM_FRONT_%ST_%ET.ts' (the text in front of %ST "
        "ends at its first %, S or T, in front of %ET at its first %, E or T; a pattern at the "
        "start stays literal): 'CAM_FRONT__.ts' would become 'CAM_FRON_.ts'",
        RequestGuard::fileNameFormat("CAM_FRONT_%ST_%ET.ts", "", tsMinuteFiles(),
                                     dvrtest::utcTestTime())
            .value_or(""));
}

TEST(RequestGuard, PatternOnWhichTheServiceAbortsIsRefused) {
    ChannelNaming naming = tsMinuteFiles();
    naming.fileNameLengthLimit = 20;
    EXPECT_EQ("the time format has 24 characters; the service aborts on 20 or more",
              RequestGuard::fileNameFormat("/r/a_%ST", "%Y-%m-%d_%H-%M-%S-xxxxxx", naming,
                                           dvrtest::utcTestTime())
                  .value_or(""));
}

TEST(RequestGuard, PlainPatternPasses) {
    EXPECT_FALSE(RequestGuard::fileNameFormat("/rec/cam0_%ST_%ET.ts", "%Y%m%d-%H%M%S",
                                              tsMinuteFiles(), dvrtest::utcTestTime()));
    EXPECT_FALSE(RequestGuard::fileNameFormat("", "", tsMinuteFiles(), dvrtest::utcTestTime()));
}

TEST(RequestGuard, ColourCodesNameWhatTheRendererDraws) {
    EXPECT_EQ("magenta", RequestGuard::colourName(0));
    EXPECT_EQ("white", RequestGuard::colourName(1));
    EXPECT_EQ("black", RequestGuard::colourName(7));
    EXPECT_EQ("nothing", RequestGuard::colourName(8));
    EXPECT_EQ("", RequestGuard::colourName(9));
}
