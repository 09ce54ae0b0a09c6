#include "VEKSlider.h"

#include "PlayerArt.h"

#include <QLabel>
#include <QStyle>
#include <QStyleOptionSlider>

#include <algorithm>
#include <cmath>

VEKSlider::VEKSlider(Qt::Orientation orientation, QWidget *parent) : QSlider(orientation, parent)
{
    setValueRange(0.0, 1.0, 100);
    connect(this, &QSlider::valueChanged, this, [this] {
        if (isTipShown())
            placeTip();
        if (m_valueLabel)
            m_valueLabel->setText(tipText());
        if (!m_quiet)
            emit edited(doubleValue());
    });
    connect(this, &QSlider::sliderPressed, this, &VEKSlider::showTip);
    connect(this, &QSlider::sliderReleased, this, &VEKSlider::hideTip);
}

VEKSlider::~VEKSlider()
{
    delete m_tip;
}

void VEKSlider::setValueRange(double minimum, double maximum, int steps)
{
    const double value = doubleValue();
    m_minimum = minimum;
    m_maximum = maximum;
    m_quiet = true;
    setRange(0, std::max(1, steps));
    setPageStep(std::max(1, steps / 10));
    m_quiet = false;
    setDoubleValue(value);
}

double VEKSlider::doubleValue() const
{
    if (maximum() <= 0)
        return m_minimum;
    return m_minimum + (m_maximum - m_minimum) * double(value()) / double(maximum());
}

int VEKSlider::positionFor(double value) const
{
    if (!(m_maximum > m_minimum) || !std::isfinite(value))
        return 0;
    const double t = std::clamp((value - m_minimum) / (m_maximum - m_minimum), 0.0, 1.0);
    return int(std::lround(t * maximum()));
}

void VEKSlider::setDoubleValue(double value)
{
    m_quiet = true;
    setValue(positionFor(value));
    m_quiet = false;
}

void VEKSlider::setTipText(TipText tipText)
{
    m_tipText = std::move(tipText);
}

QString VEKSlider::tipText() const
{
    return m_tipText ? m_tipText(*this) : QString();
}

QLabel *VEKSlider::makeValueLabel(QWidget *parent)
{
    m_valueLabel = new QLabel(tipText(), parent);
    m_valueLabel->setObjectName(QStringLiteral("PreferencesValue"));
    m_valueLabel->setMinimumWidth(52);
    return m_valueLabel;
}

bool VEKSlider::isTipShown() const
{
    return m_tip && m_tip->isVisible();
}

void VEKSlider::showTip()
{
    if (tipText().isEmpty())
        return;
    if (!m_tip) {
        // A child of the window, so it may stand outside the slider's own bounds.
        m_tip = new QLabel(window());
        m_tip->setObjectName(QStringLiteral("VEKSliderTip"));
        m_tip->setAttribute(Qt::WA_TransparentForMouseEvents);
        m_tip->setFont(PlayerArt::font(PlayerArt::Weight::Medium, 13));
        m_tip->setAlignment(Qt::AlignCenter);
        m_tip->setStyleSheet(QStringLiteral("QLabel { color: %1; background: %2; border: 1px solid %3;"
                                            " border-radius: 5px; padding: 2px 7px; }")
                                 .arg(PlayerArt::accent().name(), PlayerArt::panel().name(),
                                      PlayerArt::accent().darker(200).name()));
    }
    placeTip();
    m_tip->show();
    m_tip->raise();
}

void VEKSlider::hideTip()
{
    if (m_tip)
        m_tip->hide();
}

void VEKSlider::placeTip()
{
    if (!m_tip)
        return;
    m_tip->setText(tipText());
    m_tip->adjustSize();
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect knob = style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    QPoint at;
    if (orientation() == Qt::Horizontal) // above the knob
        at =
            mapTo(window(), QPoint(knob.center().x() - m_tip->width() / 2, knob.top() - m_tip->height() - 4));
    else // to its right
        at = mapTo(window(), QPoint(knob.right() + 6, knob.center().y() - m_tip->height() / 2));
    const QRect bounds = window()->rect();
    at.setX(std::clamp(at.x(), 0, std::max(0, bounds.width() - m_tip->width())));
    at.setY(std::clamp(at.y(), 0, std::max(0, bounds.height() - m_tip->height())));
    m_tip->move(at);
}
