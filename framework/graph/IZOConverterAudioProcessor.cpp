#include "IZOConverterAudioProcessor.h"

bool IZOConverterAudioProcessor::setFilterSteepness(quint32 steepness, VEKError *error)
{
    QString reason;
    return m_converter.setFilterSteepness(steepness, &reason) || fail(error, reason);
}

bool IZOConverterAudioProcessor::setFilterCutoffScaling(float scaling, VEKError *error)
{
    QString reason;
    return m_converter.setFilterCutoffScaling(scaling, &reason) || fail(error, reason);
}

bool IZOConverterAudioProcessor::setFilterPreRinging(float preRinging, VEKError *error)
{
    QString reason;
    return m_converter.setFilterPreRinging(preRinging, &reason) || fail(error, reason);
}

QVariantMap IZOConverterAudioProcessor::settings() const
{
    QVariantMap s = VEKConverterAudioProcessor::settings();
    s.insert(QStringLiteral("filterSteepness"), filterSteepness());
    s.insert(QStringLiteral("filterCutoffScaling"), double(filterCutoffScaling()));
    s.insert(QStringLiteral("filterPreRinging"), double(filterPreRinging()));
    return s;
}

bool IZOConverterAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKConverterAudioProcessor::setSettings(settings, error))
        return false;
    // One rebuild for the three, whichever of them the map names.
    const quint32 steepness = settings.value(QStringLiteral("filterSteepness"), filterSteepness()).toUInt();
    const float cutoff = settings.value(QStringLiteral("filterCutoffScaling"), double(filterCutoffScaling())).toFloat();
    const float preRinging = settings.value(QStringLiteral("filterPreRinging"), double(filterPreRinging())).toFloat();
    QString reason;
    return m_converter.setParameters(steepness, cutoff, preRinging, &reason) || fail(error, reason);
}
