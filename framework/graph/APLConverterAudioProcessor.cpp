#include "APLConverterAudioProcessor.h"

bool APLConverterAudioProcessor::setComplexity(quint32 complexity, VEKError *error)
{
    QString reason;
    return m_converter.setComplexity(complexity, &reason) || fail(error, reason);
}

bool APLConverterAudioProcessor::setQuality(float quality, VEKError *error)
{
    QString reason;
    return m_converter.setQuality(quality, &reason) || fail(error, reason);
}

QVariantMap APLConverterAudioProcessor::settings() const
{
    QVariantMap s = VEKConverterAudioProcessor::settings();
    s.insert(QStringLiteral("complexity"), complexity());
    s.insert(QStringLiteral("quality"), double(quality()));
    return s;
}

bool APLConverterAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKConverterAudioProcessor::setSettings(settings, error))
        return false;
    const auto complexity = settings.constFind(QStringLiteral("complexity"));
    if (complexity != settings.constEnd()) {
        bool ok = false;
        const quint32 code = complexity->toUInt(&ok);
        if (!ok)
            return fail(error, QStringLiteral("complexity %1").arg(complexity->toString()));
        if (!setComplexity(code, error))
            return false;
    }
    const auto quality = settings.constFind(QStringLiteral("quality"));
    if (quality != settings.constEnd() && !setQuality(quality->toFloat(), error))
        return false;
    return true;
}
