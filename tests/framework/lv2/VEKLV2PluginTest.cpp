#include "LV2Fixtures.h"
#include "lv2/VEKLV2Plugin.h"
#include "lv2/VEKLV2World.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

using namespace LV2Fixtures;

// Counts C++ allocations in this test binary, to show that processing makes none. Every
// unaligned form is replaced, so that all of them pair malloc with free (the sanitizers check
// that allocation and release match).
static std::atomic<long> g_allocations{0};

static void *countedAllocation(std::size_t size) noexcept
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

void *operator new(std::size_t size)
{
    if (void *p = countedAllocation(size))
        return p;
    throw std::bad_alloc();
}
void *operator new[](std::size_t size) { return operator new(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept { return countedAllocation(size); }
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept { return countedAllocation(size); }
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
void operator delete[](void *p, std::size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }

namespace {

constexpr double kRate = 48000;
constexpr quint32 kBlock = 256;

struct Stereo {
    std::vector<float> l, r;
};

Stereo input(size_t frames, int seed = 0) { return {signal(frames, seed), signal(frames, seed + 7)}; }

Stereo process(VEKLV2Plugin &plugin, const Stereo &in)
{
    Stereo out{std::vector<float>(in.l.size(), 99.f), std::vector<float>(in.r.size(), 99.f)};
    const float *const ins[2] = {in.l.data(), in.r.data()};
    float *const outs[2] = {out.l.data(), out.r.data()};
    EXPECT_TRUE(plugin.process(ins, outs, quint32(in.l.size())));
    return out;
}

void expectScaled(const std::vector<float> &out, const std::vector<float> &in, float gain,
                  float tolerance = 1e-6f)
{
    ASSERT_EQ(out.size(), in.size());
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_NEAR(out[i], in[i] * gain, tolerance) << "at frame " << i;
}

std::unique_ptr<VEKLV2Plugin> make(const QString &uri, VEKError *error = nullptr)
{
    auto plugin = VEKLV2Plugin::create(uri, kRate, kBlock, error);
    if (plugin)
        plugin->activate();
    return plugin;
}

class VEKLV2PluginTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { LV2Fixtures::setUp(); }
};

// --- Processing ---------------------------------------------------------------------------

TEST_F(VEKLV2PluginTest, MonoAmpRunsOncePerChannelAndHalvesAtMinus6dBOnArraysAndInPlace)
{
    auto amp = make(kAmp);
    ASSERT_TRUE(amp);
    EXPECT_EQ(amp->pluginChannels(), 1u);
    EXPECT_EQ(amp->numberOfInstances(), 2u);
    ASSERT_TRUE(amp->setValue("gain", -6.0206f));
    // Longer than the largest block: the host cuts it up.
    const Stereo in = input(3 * kBlock + 17);
    const Stereo out = process(*amp, in);
    expectScaled(out.l, in.l, 0.5f);
    expectScaled(out.r, in.r, 0.5f);

    VEKAudioBufferList list(2, kBlock);
    std::copy_n(in.l.begin(), kBlock, list.channel(0));
    std::copy_n(in.r.begin(), kBlock, list.channel(1));
    ASSERT_TRUE(amp->process(list));
    expectScaled({list.channel(0), list.channel(0) + kBlock}, {in.l.begin(), in.l.begin() + kBlock}, 0.5f);
    expectScaled({list.channel(1), list.channel(1) + kBlock}, {in.r.begin(), in.r.begin() + kBlock}, 0.5f);
    VEKAudioBufferList mono(1, kBlock);
    mono.channel(0)[0] = 0.25f;
    EXPECT_FALSE(amp->process(mono));
    EXPECT_EQ(mono.channel(0)[0], 0.25f);
}

TEST_F(VEKLV2PluginTest, StereoOverdriveAtNeutralSettingsPassesItsInput)
{
    auto overdrive = make(kOverdrive);
    ASSERT_TRUE(overdrive);
    EXPECT_EQ(overdrive->pluginChannels(), 2u);
    EXPECT_EQ(overdrive->numberOfInstances(), 1u);
    overdrive->setValue("drive", 0);
    overdrive->setValue("muffle", 0);
    overdrive->setValue("output", 0.5f);
    const Stereo in = input(2 * kBlock);
    const Stereo out = process(*overdrive, in);
    expectScaled(out.l, in.l, 1.f, 1e-5f);
    expectScaled(out.r, in.r, 1.f, 1e-5f);
}

// Each change is heard from the next block on, whether made between blocks or before activation.
TEST_F(VEKLV2PluginTest, ControlsAndTheEnabledAndActiveStatesTakeEffectAtTheNextBlock)
{
    auto amp = VEKLV2Plugin::create(kAmp, kRate, kBlock);
    ASSERT_TRUE(amp);
    amp->setValue("gain", -6.0206f);
    const Stereo in = input(kBlock);
    expectScaled(process(*amp, in).l, in.l, 1.f, 0.f); // not yet active
    amp->activate();
    expectScaled(process(*amp, in).l, in.l, 0.5f);
    amp->setValue(0, 0.f);
    expectScaled(process(*amp, in).r, in.r, 1.f);
    amp->setValue("gain", -6.0206f);
    amp->setEnabled(false);
    expectScaled(process(*amp, in).l, in.l, 1.f, 0.f);
    amp->setEnabled(true);
    expectScaled(process(*amp, in).l, in.l, 0.5f);
    amp->deactivate();
    expectScaled(process(*amp, in).l, in.l, 1.f, 0.f);
}

TEST_F(VEKLV2PluginTest, ProcessingAllocatesNothing)
{
    std::vector<std::unique_ptr<VEKLV2Plugin>> plugins;
    for (const QString &uri : {kAmp, kOverdrive, kMidiGain})
        plugins.push_back(make(uri));
    VEKAudioBufferList list(2, 4 * kBlock + 3); // more than one block: cut into pieces
    const long before = g_allocations.load();
    for (int round = 0; round < 50; ++round) {
        for (auto &plugin : plugins) {
            plugin->setValue(0, float(round % 3) * 0.1f);
            plugin->setEnabled(round % 5 != 0);
            plugin->process(list);
            (void)plugin->latency();
        }
    }
    EXPECT_EQ(g_allocations.load() - before, 0);
}

// --- Control ports ------------------------------------------------------------------------

TEST_F(VEKLV2PluginTest, ControlPortsCarryTheirRangesAndKinds)
{
    auto amp = make(kAmp);
    ASSERT_TRUE(amp);
    ASSERT_EQ(amp->controlPorts().size(), 1u);
    const VEKLV2Plugin::ControlPort &gain = amp->controlPorts()[0];
    EXPECT_EQ(gain.symbol, "gain");
    EXPECT_EQ(gain.name, "Amps gain (dB)");
    EXPECT_EQ(gain.minimum, -70.f);
    EXPECT_EQ(gain.maximum, 70.f);
    EXPECT_EQ(gain.defaultValue, 0.f);
    EXPECT_FALSE(gain.output || gain.toggled || gain.integer || gain.enumeration);
    EXPECT_EQ(amp->value("gain"), 0.f) << "a new plugin starts at its defaults";

    // Out-of-range values are clamped; outputs and unknown symbols cannot be set.
    EXPECT_TRUE(amp->setValue("gain", 500.f));
    EXPECT_EQ(amp->value("gain"), 70.f);
    EXPECT_FALSE(amp->setValue("nonsense", 1.f));
    EXPECT_TRUE(std::isnan(amp->value("nonsense")));

    auto gainPlugin = make(kMidiGain);
    ASSERT_TRUE(gainPlugin);
    const auto &ports = gainPlugin->controlPorts();
    const VEKLV2Plugin::ControlPort &latch = ports[size_t(gainPlugin->controlIndex("latch"))];
    EXPECT_TRUE(latch.toggled);
    EXPECT_TRUE(gainPlugin->setValue("latch", 0.3f));
    EXPECT_EQ(gainPlugin->value("latch"), 1.f);
    const VEKLV2Plugin::ControlPort &latency = ports[size_t(gainPlugin->controlIndex("latency"))];
    EXPECT_TRUE(latency.output && latency.isLatency && latency.integer);
    EXPECT_FALSE(gainPlugin->setValue("latency", 3.f));

    // Units: a symbol of the plugin's own, one from the units ontology, none at all.
    EXPECT_EQ(ports[size_t(gainPlugin->controlIndex("gain"))].unit, "x");
    EXPECT_EQ(latch.unit, QString());
    auto psycho = make("http://drobilla.net/plugins/mda/RePsycho");
    ASSERT_TRUE(psycho);
    EXPECT_EQ(psycho->controlPorts()[size_t(psycho->controlIndex("tune"))].unit, "semi");
}

TEST_F(VEKLV2PluginTest, FeaturesOptionsAtomBuffersAndLatencyReachThePlugin)
{
    auto plugin = make(kMidiGain);
    ASSERT_TRUE(plugin);
    EXPECT_EQ(plugin->latency(), 0u); // nothing reported before the first block
    process(*plugin, input(kBlock));
    // The plugin checks the URID map, the block-length and rate options, an input sequence
    // and an output buffer of the 64 KiB its port asks for.
    EXPECT_EQ(plugin->value("hostok"), 1.f);
    EXPECT_EQ(plugin->value("rate"), float(kRate));
    EXPECT_EQ(plugin->latency(), 64u);
}

// --- Settings -----------------------------------------------------------------------------

TEST_F(VEKLV2PluginTest, SettingsBringBackTheSameValuesAndTheSameOutput)
{
    auto original = make(kOverdrive);
    ASSERT_TRUE(original);
    original->setValue("drive", 0.37f);
    original->setValue("muffle", 0.21f);
    original->setValue("output", 0.62f);
    original->setEnabled(false);
    const QVariantMap settings = original->settings();
    EXPECT_EQ(settings.value("uri").toString(), kOverdrive);
    EXPECT_EQ(settings.value("enabled"), QVariant(false));
    EXPECT_EQ(settings.value("controls").toMap().size(), 3);

    VEKError error;
    auto copy = VEKLV2Plugin::fromSettings(settings, kRate, kBlock, &error);
    ASSERT_TRUE(copy) << error.text().toStdString();
    EXPECT_FALSE(copy->isEnabled());
    for (const auto &port : original->controlPorts())
        EXPECT_EQ(copy->value(port.symbol), original->value(port.symbol)) << port.symbol.toStdString();
    EXPECT_EQ(copy->settings(), settings);

    original->setEnabled(true);
    copy->setEnabled(true);
    copy->activate();
    const Stereo in = input(4 * kBlock, 3);
    const Stereo a = process(*original, in), b = process(*copy, in);
    EXPECT_EQ(a.l, b.l);
    EXPECT_EQ(a.r, b.r);
    // The stored values do change the sound, so equal outputs mean equal values.
    float largest = 0;
    for (size_t i = 0; i < in.l.size(); ++i)
        largest = std::max(largest, std::abs(a.l[i] - in.l[i]));
    EXPECT_GT(largest, 0.05f);
}

TEST_F(VEKLV2PluginTest, PluginStateTravelsInTheSettings)
{
    auto original = make(kMidiGain);
    ASSERT_TRUE(original);
    // Latch 0.25 into the plugin's memory, then leave the ports where they do not show it.
    original->setValue("target", 0.25f);
    original->setValue("latch", 1.f);
    process(*original, input(kBlock));
    original->setValue("latch", 0.f);
    original->setValue("target", 1.f);
    original->setValue("gain", 2.f);
    const QVariantMap settings = original->settings();
    ASSERT_EQ(settings.value("state").typeId(), QMetaType::QString);

    const Stereo in = input(kBlock, 5);
    auto restored = VEKLV2Plugin::fromSettings(settings, kRate, kBlock);
    ASSERT_TRUE(restored);
    restored->activate();
    expectScaled(process(*restored, in).l, in.l, 0.5f);

    QVariantMap withoutState = settings;
    withoutState.remove("state");
    auto fresh = VEKLV2Plugin::fromSettings(withoutState, kRate, kBlock);
    ASSERT_TRUE(fresh);
    fresh->activate();
    expectScaled(process(*fresh, in).l, in.l, 2.f);
}

// --- Failures -----------------------------------------------------------------------------

TEST_F(VEKLV2PluginTest, UnknownPluginsAndThoseThatCannotRunHereAreRefusedWithAReason)
{
    const QString unknown = "urn:quivera:no-such-plugin";
    const struct {
        QString uri;
        double rate;
        quint32 block;
        int code; // -1: any error
        const char *reason;
    } cases[] = {
        {unknown, kRate, kBlock, VEKLV2World::UnknownPlugin, "urn:quivera:no-such-plugin"},
        {kHilbert, kRate, kBlock, VEKLV2World::UnsupportedPlugin,
         "1 audio inputs and 2 audio outputs; only mono"},
        {kNeedsWorker, kRate, kBlock, VEKLV2World::UnsupportedPlugin, "worker#schedule"},
        {kRefuses, kRate, kBlock, VEKLV2World::InstantiationFailed, ""},
        {kAmp, 0, kBlock, -1, ""},
        {kAmp, kRate, 0, -1, ""},
    };
    for (const auto &c : cases) {
        VEKError error;
        EXPECT_FALSE(VEKLV2Plugin::create(c.uri, c.rate, c.block, &error)) << c.uri.toStdString();
        EXPECT_EQ(error.domain(), "VEKLV2") << c.uri.toStdString();
        EXPECT_TRUE(c.code < 0 || error.code() == c.code) << c.uri.toStdString() << " " << error.code();
        EXPECT_TRUE(error.failureReason().contains(QLatin1String(c.reason))) << error.text().toStdString();
    }
    VEKError error;
    QVariantMap settings{{"uri", "urn:quivera:gone"}, {"controls", QVariantMap{{"gain", 1.0}}}};
    EXPECT_FALSE(VEKLV2Plugin::fromSettings(settings, kRate, kBlock, &error));
    EXPECT_EQ(error.code(), VEKLV2World::UnknownPlugin);
}

TEST_F(VEKLV2PluginTest, CorruptSettingsFailWithAnErrorAndNoCrash)
{
    const QString uri = "uri";
    const struct {
        QVariantMap settings;
        VEKLV2World::ErrorCode code;
    } cases[] = {
        {{}, VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, 42}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, QString()}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, QVariantList{kAmp}}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, kAmp}, {"controls", "loud"}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, kAmp}, {"controls", QVariantMap{{"gain", "x"}}}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, kAmp}, {"enabled", QVariantMap()}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, kMidiGain}, {"state", 7}}), VEKLV2World::CorruptSettings},
        {QVariantMap({{uri, kMidiGain}, {"state", "@prefix broken"}}), VEKLV2World::StateFailed},
    };
    for (const auto &c : cases) {
        VEKError error;
        EXPECT_FALSE(VEKLV2Plugin::fromSettings(c.settings, kRate, kBlock, &error)) << c.settings.size();
        EXPECT_EQ(error.code(), c.code) << error.text().toStdString();
        EXPECT_FALSE(error.localizedDescription().isEmpty());
    }

    // State saved by one plugin is not pushed into another.
    auto amp = make(kAmp);
    auto gain = make(kMidiGain);
    QVariantMap foreign = gain->settings();
    foreign.insert(uri, kMidiGain);
    QString state = foreign.value("state").toString();
    state.replace(kMidiGain, kAmp);
    foreign.insert("state", state);
    VEKError error;
    EXPECT_FALSE(VEKLV2Plugin::fromSettings(foreign, kRate, kBlock, &error));
    EXPECT_EQ(error.code(), VEKLV2World::StateFailed);
}

} // namespace
