// The library over links with faults, two networks and a cable each. scripts/network runs the same
// over many more of them, and over long cuts, and holds it to its times: here the machine is busy.

#include <gtest/gtest.h>

#include "LinkRunProcess.h"

namespace
{

TEST(LossyLink, OfFivePercentTakesAnUploadWhole)
{
    EXPECT_LINK_RUN("upload", "delay=10", "loss=5", "bytes=300007");
}

TEST(LossyLink, OfFivePercentGivesADownloadWhole)
{
    EXPECT_LINK_RUN("download", "delay=10", "loss=5", "bytes=300007");
}

TEST(LossyLink, OfFivePercentDelaysPacketsOfChannelsAndLosesNone)
{
    EXPECT_LINK_RUN("channel", "delay=10", "loss=5");
}

TEST(LateLink, OfATenthOfASecondTakesAnUploadWhole)
{
    EXPECT_LINK_RUN("upload", "delay=100", "bytes=100003");
}

// The bytes are those of each file; the delay is what several connections share.
TEST(LateLink, TakesSixTimesAsManyUploadsOverEightConnections)
{
    EXPECT_LINK_RUN("uploads", "delay=10", "rate=0", "bytes=16384", "files=14");
}

TEST(LateLink, GivesSixTimesAsManyDownloadsOverEightConnections)
{
    EXPECT_LINK_RUN("downloads", "delay=10", "rate=0", "bytes=16384", "files=22");
}

TEST(SilentLink, OfOneSecondInTheMiddleOfAnUploadIsSurvived)
{
    EXPECT_LINK_RUN("upload", "delay=10", "cut=1");
}

TEST(SilentLink, OfOneSecondInTheMiddleOfADownloadIsSurvived)
{
    EXPECT_LINK_RUN("download", "delay=10", "cut=1");
}

TEST(SilentLink, OfOneSecondHoldsChannelsUpAndLosesNothing)
{
    EXPECT_LINK_RUN("channel", "delay=10", "cut=1", "slack=60");
}

TEST(DisorderlyLink, ChangesNoByteOfAnUpload)
{
    EXPECT_LINK_RUN("upload", "delay=10", "jitter=10", "reorder=25", "bytes=300007");
}

TEST(DisorderlyLink, ChangesNoByteOfADownload)
{
    EXPECT_LINK_RUN("download", "delay=10", "jitter=10", "reorder=25", "bytes=300007");
}

TEST(RepeatingLink, ChangesNoByteOfADownload)
{
    EXPECT_LINK_RUN("download", "delay=10", "duplicate=10", "bytes=300007");
}

TEST(CorruptingLink, ChangesNoByteOfAnUpload)
{
    EXPECT_LINK_RUN("upload", "delay=10", "corrupt=2", "bytes=300007");
}

TEST(CorruptingLink, ChangesNoByteOfADownload)
{
    EXPECT_LINK_RUN("download", "delay=10", "corrupt=2", "bytes=300007");
}

TEST(CorruptingLink, DamagesNoPacketOfAChannel)
{
    EXPECT_LINK_RUN("channel", "delay=10", "corrupt=5", "reorder=10", "duplicate=10");
}

}  // namespace
