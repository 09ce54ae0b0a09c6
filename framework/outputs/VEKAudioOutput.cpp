#include "VEKAudioOutput.h"

VEKAudioDeviceFormat VEKAudioOutput::deviceFormat() const
{
    // No record but our own: the words we hand over are what is kept.
    const VEKAudioFormat f = format();
    VEKAudioDeviceFormat d;
    if (f.sampleRate <= 0.0 || f.numberOfChannels == 0)
        return d;
    VEKAudioDeviceFormat::Layer layer;
    layer.sampleFormat = f.isFloat ? QStringLiteral("FLOAT_LE") : QStringLiteral("S%1_LE").arg(f.bitDepth);
    layer.sampleRate = f.sampleRate;
    layer.numberOfChannels = f.numberOfChannels;
    layer.significantBits = f.bitDepth;
    layer.isFloat = f.isFloat;
    d.layers.append(layer);
    return d;
}
