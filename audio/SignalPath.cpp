#include "SignalPath.h"

#include "core/VEKLocalizedString.h"

#include <QLocale>
#include <algorithm>
#include <cmath>

namespace {

QString text(const char *key)
{
    return VEKLocalizedString(key);
}

QString decibels(double gain)
{
    if (gain <= 0.0)
        return QStringLiteral("−∞ dB");
    return QStringLiteral("%1 dB")
        .arg(QLocale().toString(20.0 * std::log10(gain), 'f', 1))
        .replace(u'-', u'−');
}

QString channelsText(quint32 channels)
{
    if (channels == 1)
        return text("SignalPath_mono");
    if (channels == 2)
        return text("SignalPath_stereo");
    return text("SignalPath_channels").arg(channels);
}

// "24-bit (S24_3LE), 44.1 kHz": the depth in words a listener reads, ALSA's name beside it for
// the one who checks.
QString layerText(const VEKAudioDeviceFormat::Layer &layer)
{
    QString word = layer.sampleFormat;
    if (layer.significantBits > 0 && !word.isEmpty())
        word = text(layer.isFloat ? "SignalPath_floatWord" : "SignalPath_word")
                   .arg(layer.significantBits)
                   .arg(layer.sampleFormat);
    return QStringLiteral("%1, %2").arg(word, SignalPath::rateText(layer.sampleRate));
}

// The bits of a word the signal can fill: a float sample carries 24.
int carriedBits(const VEKAudioDeviceFormat::Layer &layer)
{
    return layer.isFloat ? 24 : int(layer.significantBits);
}

SignalPath::Stage stageOf(SignalPath::Kind kind)
{
    SignalPath::Stage s;
    s.kind = kind;
    return s;
}

} // namespace

QString SignalPath::rateText(double rate)
{
    return QStringLiteral("%1 kHz").arg(QLocale().toString(rate / 1000.0, 'g', 5));
}

QString SignalPath::Stage::title() const
{
    switch (kind) {
    case Kind::RateConversion: return text("SignalPath_rateConversion");
    case Kind::Volume: return text("SignalPath_volume");
    case Kind::Effect: return text("SignalPath_effect");
    case Kind::Headphones: return text("SignalPath_headphones");
    case Kind::Dim: return text("SignalPath_dim");
    case Kind::Mute: return text("SignalPath_mute");
    case Kind::Dither: return text("SignalPath_dither");
    case Kind::Rounding: return text("SignalPath_rounding");
    case Kind::DeviceLayer: return text("SignalPath_deviceLayer");
    }
    return {};
}

QString SignalPath::Stage::detail() const
{
    switch (kind) {
    case Kind::RateConversion:
        return text("SignalPath_rateConversionDetail").arg(rateText(fromRate), rateText(toRate), name);
    case Kind::Volume: return decibels(gain);
    case Kind::Effect: return name;
    case Kind::Headphones: return text("SignalPath_headphonesDetail");
    case Kind::Dim: return text("SignalPath_dimDetail");
    case Kind::Mute: return text("SignalPath_muteDetail");
    case Kind::Dither: return text("SignalPath_ditherDetail").arg(bits);
    case Kind::Rounding: return text("SignalPath_roundingDetail").arg(bits);
    case Kind::DeviceLayer: return text("SignalPath_deviceLayerDetail").arg(fromFormat, toFormat);
    }
    return {};
}

SignalPath SignalPath::build(const Source &source, const Settings &settings,
                             const VEKAudioDeviceFormat &device)
{
    SignalPath path;
    path.m_source = source;
    path.m_device = device;
    if (!path.hasSong()) {
        path.m_reasons << text("SignalPath_reasonNoSong");
        return path;
    }
    if (source.isLossy())
        path.m_reasons << text("SignalPath_reasonLossy").arg(source.codec);
    if (!device.isValid()) {
        path.m_reasons << text("SignalPath_reasonNoDevice");
        return path;
    }

    auto add = [&path](Stage stage, const QString &reason) {
        path.m_stages.append(std::move(stage));
        if (!reason.isEmpty())
            path.m_reasons.append(reason);
    };
    const VEKAudioDeviceFormat::Layer &written = device.layers.first();
    if (source.sampleRate != written.sampleRate) {
        Stage s = stageOf(Kind::RateConversion);
        s.fromRate = source.sampleRate;
        s.toRate = written.sampleRate;
        s.name = settings.converter;
        add(s, text("SignalPath_reasonRate").arg(rateText(s.fromRate), rateText(s.toRate)));
    }
    // The effects, crossfeed, volume, dim and mute stand in the graph in this order.
    for (const QString &effect : settings.effects) {
        Stage s = stageOf(Kind::Effect);
        s.name = effect;
        add(s, text("SignalPath_reasonEffect").arg(effect));
    }
    if (settings.headphones)
        add(stageOf(Kind::Headphones), text("SignalPath_reasonHeadphones"));
    if (float(settings.volume) != 1.0f) {
        Stage s = stageOf(Kind::Volume);
        s.gain = settings.volume;
        add(s, text("SignalPath_reasonVolume").arg(decibels(s.gain)));
    }
    if (settings.dim)
        add(stageOf(Kind::Dim), text("SignalPath_reasonDim"));
    if (settings.mute)
        add(stageOf(Kind::Mute), text("SignalPath_reasonMute"));

    // How many bits of the word the signal now fills: the song's own, or a float's 24 once
    // anything has computed with it.
    const bool computed = source.isLossy() || !path.m_stages.isEmpty();
    int bits = computed ? 24 : source.bitsPerSample;
    // The dither leaves alone a signal that already lies on its grid; depths above 24 cut nothing.
    if (settings.ditherEnabled && settings.ditherDepth <= 24 && settings.ditherDepth < bits) {
        Stage s = stageOf(Kind::Dither);
        s.bits = settings.ditherDepth;
        add(s, text("SignalPath_reasonDither").arg(s.bits));
        bits = s.bits;
    }
    if (!written.isFloat && carriedBits(written) < bits) {
        Stage s = stageOf(Kind::Rounding);
        s.bits = carriedBits(written);
        add(s, text("SignalPath_reasonRounding").arg(s.bits).arg(bits));
        bits = s.bits;
    }
    // ALSA's layers beneath the one we write to.
    for (qsizetype i = 1; i < device.layers.size(); ++i) {
        const VEKAudioDeviceFormat::Layer &from = device.layers[i - 1];
        const VEKAudioDeviceFormat::Layer &to = device.layers[i];
        if (from.sampleFormat == to.sampleFormat && from.sampleRate == to.sampleRate
            && from.numberOfChannels == to.numberOfChannels)
            continue;
        Stage s = stageOf(Kind::DeviceLayer);
        s.name = to.name;
        s.fromFormat = layerText(from);
        s.toFormat = layerText(to);
        const bool losesBits = !to.isFloat && carriedBits(to) < bits;
        s.changesSamples = losesBits || from.sampleRate != to.sampleRate
                           || from.numberOfChannels != to.numberOfChannels
                           || (from.isFloat != to.isFloat && computed);
        add(s, s.changesSamples ? text("SignalPath_reasonDeviceLayer").arg(s.fromFormat, s.toFormat)
                                : QString());
        if (losesBits)
            bits = carriedBits(to);
    }
    path.m_bitPerfect = path.m_reasons.isEmpty();
    return path;
}

QString SignalPath::sourceText() const
{
    if (!hasSong())
        return {};
    QStringList parts;
    parts << (m_source.isLossy()
                  ? m_source.codec
                  : text("SignalPath_sourceBits").arg(m_source.codec).arg(m_source.bitsPerSample));
    parts << rateText(m_source.sampleRate);
    if (m_source.channels > 0)
        parts << channelsText(quint32(m_source.channels));
    return parts.join(QStringLiteral(", "));
}

QString SignalPath::deviceText() const
{
    if (!m_device.isValid())
        return {};
    const VEKAudioDeviceFormat::Layer &hw = m_device.hardware();
    return QStringLiteral("%1, %2").arg(layerText(hw), channelsText(hw.numberOfChannels));
}

QString SignalPath::verdictText() const
{
    if (m_bitPerfect)
        return text("SignalPath_bitPerfect");
    return text("SignalPath_notBitPerfectBecause").arg(m_reasons.join(u' '));
}
