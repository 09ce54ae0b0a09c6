// The signal path's stages and verdict from the song, the settings and what the device reported.

#include "audio/SignalPath.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using Kind = SignalPath::Kind;
using Layer = VEKAudioDeviceFormat::Layer;

VEKAudioDeviceFormat device(std::initializer_list<Layer> layers)
{
    VEKAudioDeviceFormat d;
    d.layers = layers;
    return d;
}

const Layer s24at44{"card", "S24_3LE", 44100, 2, 24, false};
const Layer s16at44{"card", "S16_LE", 44100, 2, 16, false};
const Layer s32at44{"Plug PCM", "S32_LE", 44100, 2, 32, false};
const Layer s24at48{"card", "S24_3LE", 48000, 2, 24, false};
const Layer floatAt44{"card", "FLOAT_LE", 44100, 2, 32, true};

struct Case {
    const char *what;
    SignalPath::Source source;
    SignalPath::Settings settings;
    VEKAudioDeviceFormat device;
    QList<Kind> stages;
    bool bitPerfect;
};

SignalPath::Settings with(const std::function<void(SignalPath::Settings &)> &change)
{
    SignalPath::Settings s;
    s.converter = "soxr high quality";
    change(s);
    return s;
}

TEST(SignalPath, StagesAndVerdictFollowWhatChangesTheSamples)
{
    const SignalPath::Source flac16{"FLAC", 44100, 16, 2};
    const SignalPath::Source flac24{"FLAC", 44100, 24, 2};
    const SignalPath::Source mp3{"MP3", 44100, 0, 2};
    const auto same = with([](auto &) {});
    const auto halfVolume = with([](auto &s) { s.volume = 0.5; });
    const auto dither = with([](auto &s) { s.ditherEnabled = true; });
    const auto halfVolumeDithered = with([](auto &s) { s.volume = 0.5, s.ditherEnabled = true; });
    const auto all =
        with([](auto &s) { s.dim = true, s.mute = true, s.headphones = true, s.effects = {"Amp"}; });
    const VEKAudioDeviceFormat card24 = device({s24at44});
    const Case cases[] = {
        {"untouched into a wider word", flac16, same, card24, {}, true},
        {"untouched into float", flac24, same, device({floatAt44}), {}, true},
        {"rate converted", flac16, same, device({s24at48}), {Kind::RateConversion}, false},
        {"volume below 1", flac16, halfVolume, card24, {Kind::Volume}, false},
        {"dither finds nothing to cut", flac16, dither, card24, {}, true},
        {"dither cuts a longer word", flac24, dither, card24, {Kind::Dither}, false},
        {"dither after the volume", flac16, halfVolumeDithered, card24, {Kind::Volume, Kind::Dither}, false},
        {"dither off, the device rounds", flac24, same, device({s16at44}), {Kind::Rounding}, false},
        {"graph order", flac16, all, card24, {Kind::Effect, Kind::Headphones, Kind::Dim, Kind::Mute}, false},
        {"ALSA repacks without loss", flac24, same, device({s32at44, s24at44}), {Kind::DeviceLayer}, true},
        {"ALSA cuts the word", flac24, same, device({s32at44, s16at44}), {Kind::DeviceLayer}, false},
        {"lossy", mp3, same, card24, {}, false},
        {"device closed", flac16, same, device({}), {}, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const SignalPath path = SignalPath::build(c.source, c.settings, c.device);
        QList<Kind> kinds;
        for (const SignalPath::Stage &s : path.stages())
            kinds << s.kind;
        EXPECT_EQ(kinds, c.stages);
        EXPECT_EQ(path.isBitPerfect(), c.bitPerfect);
        EXPECT_EQ(path.reasons().isEmpty(), c.bitPerfect) << path.verdictText().toStdString();
    }
}

TEST(SignalPath, StagesSayFromWhatToWhat)
{
    const SignalPath::Source flac{"FLAC", 96000, 24, 2};
    const SignalPath path =
        SignalPath::build(flac, with([](auto &s) { s.ditherEnabled = true; }), device({s16at44}));
    ASSERT_EQ(path.stages().size(), 2);
    EXPECT_EQ(path.stages()[0].detail(), "96 kHz → 44.1 kHz, soxr high quality");
    EXPECT_EQ(path.stages()[1].kind, Kind::Dither);
    EXPECT_EQ(path.stages()[1].bits, 16) << "the dither's own depth, on a converted (float) signal";
    EXPECT_EQ(path.sourceText(), "FLAC 24-bit, 96 kHz, stereo");
    EXPECT_EQ(path.deviceText(), "16-bit (S16_LE), 44.1 kHz, stereo");
    EXPECT_TRUE(path.verdictText().contains("96 kHz to 44.1 kHz")) << path.verdictText().toStdString();
    EXPECT_FALSE(SignalPath().hasSong());
    EXPECT_FALSE(SignalPath().isBitPerfect());
}

} // namespace
