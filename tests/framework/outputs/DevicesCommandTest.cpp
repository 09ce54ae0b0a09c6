#include "OutputTestSupport.h"
#include "support/CliHarness.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace OutputTestSupport;

namespace {

class DevicesCommand : public ::testing::Test {
protected:
    void SetUp() override { installALSAConfiguration(); } // inherited by the child
    CliHarness cli;
};

TEST_F(DevicesCommand, ListsEveryOutputWithItsRatesAndExclusivityAsJsonAndAsText)
{
    const CliHarness::Result r = cli.run({"devices", "--json"});
    ASSERT_EQ(r.status, 0) << r.err.constData();
    EXPECT_TRUE(r.err.isEmpty()) << "ALSA's chatter must stay off: " << r.err.constData();
    const QJsonArray devices = QJsonDocument::fromJson(r.out).array();
    ASSERT_EQ(devices.size(), 5) << r.out.constData();
    // In the order of ALSADevice.ListsTheHintedPlaybackPCMsAndNullLast.
    const QJsonObject card = devices.at(3).toObject();
    EXPECT_EQ(card["UID"].toString(), "card44");
    EXPECT_EQ(card["title"].toString(), "Rates 44100 and 96000 — Test card");
    EXPECT_EQ(card["sampleRates"].toArray(), (QJsonArray{44100, 96000}));
    EXPECT_EQ(card["exclusive"], QJsonValue(false));
    EXPECT_EQ(card["valid"], QJsonValue(true));
    EXPECT_EQ(devices.at(1)["sampleRates"].toArray().size(), 19) << "file over null takes any rate";
    EXPECT_EQ(devices.at(4)["title"].toString(), "No Output");

    // As text: the default marked, the rates named.
    const CliHarness::Result plain = cli.run({"devices"});
    ASSERT_EQ(plain.status, 0) << plain.err.constData();
    const QString text = QString::fromUtf8(plain.out);
    EXPECT_TRUE(text.contains("card44")) << plain.out.constData();
    EXPECT_TRUE(text.contains("44100 96000")) << plain.out.constData();
    EXPECT_TRUE(text.contains("* default")) << plain.out.constData();
    EXPECT_EQ(cli.run({"devices", "extra"}).status, 2);
}

} // namespace
