#include "CliProgressBar.h"

#include <QByteArray>
#include <QtGlobal>
#include <cstdio>
#include <unistd.h>

CliProgressBar::CliProgressBar() : m_enabled(::isatty(STDERR_FILENO) == 1) {}

CliProgressBar::~CliProgressBar() { clear(); }

void CliProgressBar::show(const QString &label, float progress)
{
    if (!m_enabled)
        return;
    constexpr int width = 32;
    // Rounded: a sum of many small steps ends a hair below 1.
    const int percent = qBound(0, qRound(progress * 100.0f), 100);
    const int filled = qBound(0, qRound(progress * float(width)), width);
    QByteArray line = label.toUtf8() + " [" + QByteArray(filled, '#')
                      + QByteArray(width - filled, '-') + "] ";
    line += QByteArray::number(percent).rightJustified(3, ' ') + '%';
    std::fprintf(stderr, "\r%s", line.constData());
    std::fflush(stderr);
    m_shownWidth = qMax(m_shownWidth, int(line.size()));
}

void CliProgressBar::clear()
{
    if (m_shownWidth > 0)
        std::fprintf(stderr, "\r%*s\r", m_shownWidth, "");
    m_shownWidth = 0;
}
