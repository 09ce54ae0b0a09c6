#include "VEKError.h"

#include <cstdio>

VEKError::VEKError(QString domain, qint64 code, QString description, QString reason)
    : m_domain(std::move(domain)), m_code(code), m_description(std::move(description)),
      m_reason(std::move(reason))
{
}

QString VEKError::text() const
{
    if (m_reason.isEmpty())
        return m_description;
    if (m_description.isEmpty())
        return m_reason;
    return m_description + QStringLiteral(": ") + m_reason;
}

void VEKError::alert() const
{
    if (isNull())
        return;
    VEKAlertPresenter::current()->present(*this);
}

namespace {
VEKStderrAlertPresenter g_stderrPresenter;
VEKAlertPresenter *g_presenter = nullptr;
}

void VEKAlertPresenter::install(VEKAlertPresenter *presenter) { g_presenter = presenter; }

VEKAlertPresenter *VEKAlertPresenter::current()
{
    return g_presenter ? g_presenter : &g_stderrPresenter;
}

void VEKStderrAlertPresenter::present(const VEKError &error)
{
    const QByteArray line = QStringLiteral("Quivera: %1\n").arg(error.text()).toUtf8();
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}
