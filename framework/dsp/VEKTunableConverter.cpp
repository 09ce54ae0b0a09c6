#include "VEKTunableConverter.h"

#include <algorithm>
#include <cmath>

bool VEKTunableConverter::setFilterSteepness(quint32 steepness, QString *error)
{
    return setParameters(steepness, m_cutoffScaling, m_preRinging, error);
}

bool VEKTunableConverter::setFilterCutoffScaling(float scaling, QString *error)
{
    return setParameters(m_steepness, scaling, m_preRinging, error);
}

bool VEKTunableConverter::setFilterPreRinging(float preRinging, QString *error)
{
    return setParameters(m_steepness, m_cutoffScaling, preRinging, error);
}

bool VEKTunableConverter::setParameters(quint32 steepness, float cutoffScaling, float preRinging, QString *error)
{
    const quint32 oldSteepness = m_steepness;
    const float oldCutoff = m_cutoffScaling, oldRinging = m_preRinging;
    m_steepness = steepness;
    m_cutoffScaling = std::isnan(cutoffScaling) ? 1.0f : cutoffScaling;
    m_preRinging = std::isnan(preRinging) ? 1.0f : preRinging;
    if (!update(error)) {
        m_steepness = oldSteepness;
        m_cutoffScaling = oldCutoff;
        m_preRinging = oldRinging;
        return false;
    }
    return true;
}

VEKResamplerFilter VEKTunableConverter::filter(quint32 steepness, float cutoffScaling, float preRinging, bool upsampling)
{
    const double width = std::clamp(0.5 * std::pow(25.0, -double(steepness) / 150.0), 0.002, 0.5);
    double cutoff = std::isnan(cutoffScaling) ? 1.0 : double(cutoffScaling);
    if (upsampling)
        cutoff = std::min(cutoff, 1.0 + width / 2.0);
    cutoff = std::clamp(cutoff, 0.5 + width, 1.5);
    const double ringing = std::isnan(preRinging) ? 1.0 : std::clamp(double(preRinging), 0.0, 2.0);

    VEKResamplerFilter f;
    f.precision = Precision;
    f.stopbandBegin = cutoff;
    f.passbandEnd = cutoff - width;
    f.phaseResponse = 50.0 * ringing;
    return f;
}

VEKResamplerFilter VEKTunableConverter::filterFor(double inRate, double outRate) const
{
    return filter(m_steepness, m_cutoffScaling, m_preRinging, outRate > inRate);
}
