#include "VEKPlatformConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>

bool VEKPlatformConverter::setComplexity(quint32 complexity, QString *error)
{
    if (complexity != Normal && complexity != Linear && complexity != Mastering) {
        if (error)
            *error = QStringLiteral("unknown converter complexity 0x%1").arg(complexity, 8, 16, QLatin1Char('0'));
        return false;
    }
    const quint32 old = m_complexity;
    m_complexity = complexity;
    if (!update(error)) {
        m_complexity = old;
        return false;
    }
    return true;
}

bool VEKPlatformConverter::setQuality(float quality, QString *error)
{
    const float old = m_quality;
    m_quality = std::isnan(quality) ? 1.0f : std::clamp(quality, 0.0f, 1.0f);
    if (!update(error)) {
        m_quality = old;
        return false;
    }
    return true;
}

VEKResamplerFilter VEKPlatformConverter::filter(quint32 complexity, float quality)
{
    const double q = std::isnan(quality) ? 1.0 : std::clamp(double(quality), 0.0, 1.0);
    VEKResamplerFilter f;
    if (complexity == Linear) {
        f.precision = 0.0;
        return f;
    }
    // Start from soxr's own recipe so that its passband and phase stay as soxr defines them.
    const soxr_quality_spec_t recipe = soxr_quality_spec(complexity == Mastering ? SOXR_VHQ : SOXR_HQ, 0);
    f.passbandEnd = recipe.passband_end;
    f.stopbandBegin = recipe.stopband_begin;
    f.phaseResponse = recipe.phase_response;
    f.precision = complexity == Mastering ? 20.0 + 8.0 * q : 16.0 + 4.0 * q;
    return f;
}

VEKResamplerFilter VEKPlatformConverter::filterFor(double, double) const { return filter(m_complexity, m_quality); }
