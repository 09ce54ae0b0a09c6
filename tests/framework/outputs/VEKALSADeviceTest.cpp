#include "OutputTestSupport.h"
#include "outputs/VEKAudioDevice.h"
#include "outputs/alsa/VEKALSADevice.h"
#include "outputs/alsa/VEKALSAName.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace OutputTestSupport;

namespace {

class ALSADevice : public ::testing::Test {
protected:
    void SetUp() override { installALSAConfiguration(); }
};

QStringList uids(const QList<VEKAudioDevicePtr> &devices)
{
    QStringList list;
    for (const VEKAudioDevicePtr &d : devices)
        list << d->UID();
    return list;
}

TEST_F(ALSADevice, ListsTheHintedPlaybackPCMsAndNullLast)
{
    VEKError error;
    const QList<VEKAudioDevicePtr> devices = VEKAudioDevice::outputDevices(&error);
    EXPECT_TRUE(error.isNull()) << error.text().toStdString();
    EXPECT_EQ(uids(devices), (QStringList{"default", "anyformat", "file16", "card44", "null"}));
    EXPECT_EQ(devices.at(3)->title(), "Rates 44100 and 96000 — Test card");
    for (const VEKAudioDevicePtr &d : devices) {
        EXPECT_TRUE(d->isValid()) << d->UID().toStdString();
        EXPECT_TRUE(d->hasPhysicalOutputs()) << d->UID().toStdString();
    }
}

TEST_F(ALSADevice, DefaultIsALSAsDefaultWhenItOpensElseNull)
{
    EXPECT_EQ(VEKAudioDevice::defaultOutputDevice()->UID(), "default");

    // A machine without a card: ALSA has nothing that opens as "default".
    const QString bare = TestEnvironment::makeTempDir("bare") + QStringLiteral("/asound.conf");
    ASSERT_TRUE(TestEnvironment::writeFile(bare, "pcm.null { type null }\n"));
    const QByteArray tests = qgetenv("ALSA_CONFIG_PATH");
    qputenv("ALSA_CONFIG_PATH", QFile::encodeName(bare));
    const QString fallback = VEKAudioDevice::defaultOutputDevice()->UID();
    const QStringList all = uids(VEKAudioDevice::outputDevices());
    qputenv("ALSA_CONFIG_PATH", tests);
    EXPECT_EQ(fallback, "null");
    EXPECT_EQ(all, QStringList{"null"});
}

TEST_F(ALSADevice, OffersExactlyTheRatesTheCardTakesRefusesOthersAndOpensAtTheOneSet)
{
    // Probing tests hardware parameters: exactly the rates the card takes, none that ALSA could
    // only reach by resampling; the preferred rate is one the device has.
    const VEKAudioDevicePtr card = VEKAudioDevice::deviceWithUID("card44");
    EXPECT_EQ(card->availableSampleRates(), (QList<double>{44100, 96000}));
    const VEKAudioDevicePtr paced = VEKAudioDevice::deviceWithUID("paced");
    EXPECT_EQ(paced->availableSampleRates(), (QList<double>{48000}));
    EXPECT_EQ(paced->sampleRate(), 48000.0);
    QSignalSpy changed(&VEKAudioDeviceMonitor::shared(), &VEKAudioDeviceMonitor::sampleRateChanged);
    VEKError error;
    EXPECT_FALSE(card->setSampleRate(48000, &error));
    EXPECT_EQ(error.code(), -EINVAL);
    EXPECT_EQ(card->sampleRate(), 44100.0);
    EXPECT_EQ(changed.count(), 0);

    ASSERT_TRUE(card->setSampleRate(96000, &error)) << error.text().toStdString();
    EXPECT_EQ(card->sampleRate(), 96000.0);
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed.at(0).at(0).toString(), "card44");
    EXPECT_EQ(changed.at(0).at(1).toDouble(), 96000.0);

    const std::unique_ptr<VEKAudioOutput> output = card->createOutput();
    ASSERT_TRUE(output->open({0, 2, 24, false}, 256, &error)) << error.text().toStdString();
    EXPECT_EQ(output->format().sampleRate, 96000.0);
    EXPECT_EQ(cardParams(alsaDir() + QStringLiteral("/card44.raw")), "96000 S24_3LE 2");
    output->close();
    ASSERT_TRUE(card->setSampleRate(44100, nullptr));
}

// The stream, the Output pane and the settings each ask for the device by UID: they must share
// its state.
TEST_F(ALSADevice, OneObjectPerUIDWhileHeld)
{
    const VEKAudioDevicePtr a = VEKAudioDevice::deviceWithUID("card44");
    const VEKAudioDevicePtr b = VEKAudioDevice::deviceWithUID("card44");
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(VEKAudioDevice::deviceWithID(a->deviceID()).get(), a.get());
    const qint64 id = a->deviceID();
    EXPECT_NE(VEKAudioDevice::deviceWithUID("file16")->deviceID(), id);
    EXPECT_FALSE(VEKAudioDevice::deviceWithID(987654321)->isValid());
}

TEST_F(ALSADevice, UnknownUIDIsAnInvalidDeviceThatFailsToOpenClearly)
{
    const VEKAudioDevicePtr none = VEKAudioDevice::deviceWithUID("no_such_pcm");
    EXPECT_FALSE(none->isValid());
    EXPECT_FALSE(none->hasPhysicalOutputs());
    EXPECT_EQ(none->UID(), "no_such_pcm");
    EXPECT_EQ(none->title(), "no_such_pcm");
    VEKError error;
    EXPECT_TRUE(none->availableSampleRates(&error).isEmpty());
    EXPECT_EQ(error.code(), -ENOENT);
    const std::unique_ptr<VEKAudioOutput> output = none->createOutput();
    error = {};
    EXPECT_FALSE(output->open({44100, 2, 24, false}, 512, &error));
    EXPECT_EQ(error.code(), -ENOENT);
    EXPECT_EQ(error.localizedDescription(), "The output device is not available");
    EXPECT_TRUE(error.failureReason().startsWith("no_such_pcm: ")) << error.text().toStdString();
    EXPECT_FALSE(output->start([](VEKAudioBufferList &, quint64) {}, &error));
}

TEST_F(ALSADevice, ADeviceWithoutACardHasNoExclusiveUseAndNoSources)
{
    for (const char *uid : {"default", "anyformat", "pipewire", "null"}) {
        const VEKAudioDevicePtr d = VEKAudioDevice::deviceWithUID(QString::fromLatin1(uid));
        VEKError error;
        EXPECT_FALSE(d->supportsExclusive()) << uid;
        EXPECT_FALSE(d->setIsExclusive(true, &error)) << uid;
        EXPECT_EQ(error.code(), 0x77686F3F) << uid;
        EXPECT_FALSE(d->setIsExclusive(false, nullptr)) << uid;
        EXPECT_FALSE(d->isExclusive()) << uid;
        error = {};
        EXPECT_TRUE(d->outputSources(&error).isEmpty()) << uid;
        EXPECT_TRUE(error.isNull()) << uid;
    }
}

// The test configuration gives card "Fake" a hw PCM that takes S16_LE and S24_3LE only and a
// plughw (ALSA's plug) over it, which converts whatever it gets.
TEST_F(ALSADevice, ExclusiveUseBypassesConversionAndPlaysOnTheHardware)
{
    const VEKAudioDevicePtr plug = VEKAudioDevice::deviceWithUID("plughw:CARD=Fake,DEV=0");
    ASSERT_TRUE(plug->isValid());
    ASSERT_TRUE(plug->supportsExclusive());

    EXPECT_EQ(plug->availableSampleRates(), (QList<double>{44100, 88200})) << "plug must not resample";
    std::unique_ptr<VEKAudioOutput> shared = plug->createOutput();
    ASSERT_TRUE(shared->open({44100, 2, 24, false}, 256, nullptr));
    EXPECT_EQ(shared->format().bitDepth, 32u) << "plug converts, so it offers 32 bits";
    shared->close();

    VEKError error;
    ASSERT_TRUE(plug->setIsExclusive(true, &error)) << error.text().toStdString();
    EXPECT_TRUE(plug->isExclusive());
    EXPECT_EQ(static_cast<VEKALSADevice *>(plug.get())->outputPCMName(), "hw:CARD=Fake,DEV=0");
    EXPECT_EQ(plug->availableSampleRates(), (QList<double>{44100, 88200}));
    const GridSignal s = gridSignal(24, 2, 3000, 9);
    std::unique_ptr<VEKAudioOutput> exclusive = plug->createOutput();
    ASSERT_TRUE(exclusive->open({44100, 2, 24, false}, 256, &error)) << error.text().toStdString();
    EXPECT_EQ(exclusive->format().bitDepth, 24u);
    play(*exclusive, s.planes);
    exclusive->close();
    const QString raw = alsaDir() + QStringLiteral("/hw-Fake-0.raw");
    EXPECT_EQ(cardParams(raw), "44100 S24_3LE 2");
    EXPECT_EQ(readFile(raw).left(qsizetype(s.values.size()) * 3), packInts(s.values, 0, 3));
    ASSERT_TRUE(plug->setIsExclusive(false, nullptr));
    EXPECT_EQ(static_cast<VEKALSADevice *>(plug.get())->outputPCMName(), "plughw:CARD=Fake,DEV=0");
}

TEST(ALSAName, FindsTheCardAndItsHardwareDevice)
{
    EXPECT_EQ(VEKALSAName::parse("plughw:CARD=PCH,DEV=3").hardwareName(), "hw:CARD=PCH,DEV=3");
    EXPECT_EQ(VEKALSAName::parse("hw:1,2").hardwareName(), "hw:CARD=1,DEV=2");
    EXPECT_EQ(VEKALSAName::parse("sysdefault:CARD=Intel").hardwareName(), "hw:CARD=Intel,DEV=0");
    EXPECT_EQ(VEKALSAName::parse("front:CARD=\"USB\",DEV=0").controlName(), "hw:CARD=USB");
    // hdmi:DEV=0 may sit on hw device 3: what ALSA reports wins over the name.
    EXPECT_EQ(VEKALSAName::parse("hdmi:CARD=HDMI,DEV=0").hardwareName(3), "hw:CARD=HDMI,DEV=3");
    for (const char *none : {"default", "pipewire", "pulse", "null", "plug:dmix", "file:/tmp/x", "plug:{slave hw}"})
        EXPECT_FALSE(VEKALSAName::parse(QString::fromLatin1(none)).hasCard()) << none;
}

// The mixer of the test card keeps its switches in a file, so a change is seen by the next
// mixer that opens, as on a real card.
TEST_F(ALSADevice, SourcesAreTheCardsPlaybackSwitches)
{
    const VEKAudioDevicePtr card = VEKAudioDevice::deviceWithUID("plughw:CARD=Mixed,DEV=0");
    VEKError error;
    QList<VEKAudioDeviceSource> sources = card->outputSources(&error);
    ASSERT_TRUE(error.isNull()) << error.text().toStdString();
    ASSERT_EQ(sources.size(), 2);
    EXPECT_EQ(sources[0].title, "Headphone");
    EXPECT_EQ(sources[1].title, "Speaker");
    EXPECT_TRUE(sources[0].enabled);
    EXPECT_FALSE(sources[1].enabled);
    EXPECT_NE(sources[0].sourceID, sources[1].sourceID);

    ASSERT_TRUE(card->setSourceEnabled(sources[1].sourceID, true, &error)) << error.text().toStdString();
    ASSERT_TRUE(card->setSourceEnabled(sources[0].sourceID, false, &error)) << error.text().toStdString();
    const QList<VEKAudioDeviceSource> after = card->outputSources();
    ASSERT_EQ(after.size(), 2);
    EXPECT_EQ(after[0].sourceID, sources[0].sourceID) << "IDs must not change";
    EXPECT_FALSE(after[0].enabled);
    EXPECT_TRUE(after[1].enabled);
    EXPECT_FALSE(card->setSourceEnabled(12345, true, &error));
}

} // namespace
