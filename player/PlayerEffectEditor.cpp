#include "PlayerEffectEditor.h"

#include "PlayerArt.h"
#include "core/VEKLocalizedString.h"
#include "graph/APLAudioUnitAudioProcessor.h"
#include "lv2/VEKLV2Plugin.h"
#include "lv2/VEKLV2World.h"

#include <QCheckBox>
#include <QAbstractItemView>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr int kSliderSteps = 1000;

QString valueText(float value, const VEKLV2Plugin::ControlPort &port)
{
    QString text;
    // A slider lands between round values; from 100 up a fraction says nothing to the ear.
    if (port.integer || port.enumeration || std::fabs(value) >= 100)
        text = QString::number(std::lround(value));
    else
        text = QString::number(double(value), 'g', 3);
    if (port.enumeration) {
        for (const auto &point : port.scalePoints)
            if (point.value == value)
                return point.label;
    }
    return port.unit.isEmpty() ? text : text + u' ' + port.unit;
}

// The player's panel, type and accent, with sliders, boxes and buttons drawn as the preferences
// draw theirs, rather than the style's thin grey grooves on a plain window.
QString editorStyle()
{
    return PlayerArt::styleSheet(QStringLiteral(R"(
* { font-family: "FAMILY"; font-size: 14px; color: #c9d6e3; }
#PlayerEffectEditor { background: #0c0f14; }
#effectTitle { font-size: 16px; color: #eef5fc; }
QScrollArea { background: transparent; border: none; }
QScrollArea > QWidget > QWidget { background: transparent; }
QPushButton, QComboBox { background: #1a212c; border: 1px solid #2a3442; border-radius: 7px; padding: 5px 16px;
                         min-height: 18px; color: #d6e4f2; }
QPushButton:hover, QComboBox:hover { border-color: #3d5068; }
QPushButton:focus, QComboBox:focus { border-color: #6f9fd0; }
QPushButton:pressed { background: #24303f; }
QComboBox QAbstractItemView { background: #1a212c; border: 1px solid #2f3b4b; selection-background-color: #2b4261; }
QSlider { min-height: 22px; }
QSlider::groove:horizontal { height: 4px; border-radius: 2px; background: #2a3442; }
QSlider::sub-page:horizontal { height: 4px; border-radius: 2px; background: #6f9fd0; }
QSlider::handle:horizontal { width: 14px; height: 14px; margin: -5px 0; border-radius: 7px; background: ACCENT;
                             border: 2px solid #0c0f14; }
QSlider::handle:horizontal:hover { background: #d8ecff; }
QProgressBar { background: #262f3b; border: none; border-radius: 2px; max-height: 4px; }
QProgressBar::chunk { background: #6f9fd0; border-radius: 2px; }
QCheckBox::indicator { width: 16px; height: 16px; border-radius: 4px; border: 1px solid #3a4757; background: #1a212c; }
QCheckBox::indicator:checked { background: ACCENT; border-color: ACCENT; }
PANEL_SCROLLBARS
)"));
}

bool useLog(const VEKLV2Plugin::ControlPort &port)
{
    return port.logarithmic && port.minimum > 0 && port.maximum > port.minimum;
}

} // namespace

PlayerEffectEditor::PlayerEffectEditor(VEKAudioProcessorPtr processor, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_processor(std::move(processor))
{
    setWindowTitle(m_processor ? m_processor->name() : QString());
    setObjectName(QStringLiteral("PlayerEffectEditor"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(editorStyle());
    build();
    refresh();
    m_refresh.setInterval(250);
    connect(&m_refresh, &QTimer::timeout, this, &PlayerEffectEditor::refresh);
    m_refresh.start();
}

PlayerEffectEditor::~PlayerEffectEditor() = default;

VEKLV2Plugin *PlayerEffectEditor::plugin() const
{
    auto *unit = dynamic_cast<APLAudioUnitAudioProcessor *>(m_processor.get());
    return unit ? unit->plugin() : nullptr;
}

int PlayerEffectEditor::sliderPosition(float value, float minimum, float maximum, bool logarithmic, int steps)
{
    if (!(maximum > minimum))
        return 0;
    double t;
    if (logarithmic && minimum > 0)
        t = std::log(std::max(double(value), double(minimum)) / minimum) / std::log(double(maximum) / minimum);
    else
        t = (double(value) - minimum) / (double(maximum) - minimum);
    return int(std::lround(std::clamp(t, 0.0, 1.0) * steps));
}

float PlayerEffectEditor::sliderValue(int position, float minimum, float maximum, bool logarithmic, bool integer,
                                      int steps)
{
    const double t = std::clamp(double(position) / std::max(steps, 1), 0.0, 1.0);
    double v;
    if (logarithmic && minimum > 0 && maximum > minimum)
        v = minimum * std::pow(double(maximum) / minimum, t);
    else
        v = minimum + t * (double(maximum) - minimum);
    if (integer)
        v = std::round(v);
    return float(std::clamp(v, double(minimum), double(maximum)));
}

void PlayerEffectEditor::build()
{
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(18, 16, 18, 16);
    outer->setSpacing(12);
    VEKLV2Plugin *p = plugin();
    if (!p || p->controlPorts().empty()) {
        auto *none = new QLabel(VEKLocalizedString("PlayerEffectEditor_noControls"), this);
        none->setAlignment(Qt::AlignCenter);
        outer->addWidget(none);
        resize(360, 120);
        return;
    }

    // The effect's name and maker above its controls, and a way back to where it started.
    auto *header = new QHBoxLayout;
    auto *title = new QLabel(this);
    title->setObjectName(QStringLiteral("effectTitle"));
    const QString maker = VEKLV2World::shared().effectDescription(p->uri()).value(QStringLiteral("manufacturer")).toString();
    title->setText(
        QStringLiteral("<b>%1</b>").arg(p->name().toHtmlEscaped())
        + (maker.isEmpty()
               ? QString()
               : QStringLiteral(" &nbsp;<span style='color:#7d8ea3'>%1</span>").arg(maker.toHtmlEscaped())));
    header->addWidget(title, 1);
    auto *defaults = new QPushButton(VEKLocalizedString("PlayerEffectEditor_defaults"), this);
    connect(defaults, &QPushButton::clicked, this, [this] {
        if (VEKLV2Plugin *pl = plugin()) {
            const auto &ports = pl->controlPorts();
            for (int i = 0; i < int(ports.size()); ++i)
                if (!ports[size_t(i)].output)
                    pl->setValue(i, ports[size_t(i)].defaultValue);
        }
        refresh();
    });
    header->addWidget(defaults);
    outer->addLayout(header);

    auto *area = new QScrollArea(this);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    auto *panel = new QWidget(area);
    auto *form = new QFormLayout(panel);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->setContentsMargins(0, 0, 6, 0);
    form->setHorizontalSpacing(18);
    form->setVerticalSpacing(6);
    area->setWidget(panel);
    outer->addWidget(area);

    const auto &ports = p->controlPorts();
    for (int i = 0; i < int(ports.size()); ++i) {
        const VEKLV2Plugin::ControlPort &port = ports[size_t(i)];
        if (port.isLatency)
            continue;
        Row row;
        row.control = i;
        row.held = [] { return false; };
        QWidget *field = nullptr;
        const auto write = [this, i](float v) {
            if (VEKLV2Plugin *pl = plugin())
                pl->setValue(i, v);
        };

        if (port.output) {
            // A value the plugin reports: a bar over its range and the number.
            auto *box = new QWidget(panel);
            auto *h = new QHBoxLayout(box);
            h->setContentsMargins(0, 0, 0, 0);
            auto *bar = new QProgressBar(box);
            bar->setRange(0, kSliderSteps);
            bar->setTextVisible(false);
            auto *label = new QLabel(box);
            label->setMinimumWidth(90);
            h->addWidget(bar, 1);
            h->addWidget(label);
            const VEKLV2Plugin::ControlPort copy = port;
            row.show = [bar, label, copy](float v) {
                bar->setValue(sliderPosition(v, copy.minimum, copy.maximum, useLog(copy), kSliderSteps));
                label->setText(valueText(v, copy));
            };
            field = box;
        } else if (port.toggled) {
            auto *check = new QCheckBox(panel);
            check->setAccessibleName(port.name);
            connect(check, &QCheckBox::toggled, this, [write](bool on) { write(on ? 1.f : 0.f); });
            row.show = [check](float v) {
                const QSignalBlocker block(check);
                check->setChecked(v > 0.5f);
            };
            field = check;
        } else if (port.enumeration && !port.scalePoints.empty()) {
            auto *combo = new QComboBox(panel);
            combo->setAccessibleName(port.name);
            for (const auto &point : port.scalePoints)
                combo->addItem(point.label, double(point.value));
            connect(combo, &QComboBox::activated, this,
                    [write, combo](int index) { write(float(combo->itemData(index).toDouble())); });
            row.show = [combo](float v) {
                // The labelled value nearest to the plugin's.
                int best = 0;
                for (int k = 1; k < combo->count(); ++k)
                    if (std::fabs(combo->itemData(k).toDouble() - v) < std::fabs(combo->itemData(best).toDouble() - v))
                        best = k;
                const QSignalBlocker block(combo);
                combo->setCurrentIndex(best);
            };
            row.held = [combo] { return combo->view()->isVisible(); };
            field = combo;
        } else {
            auto *box = new QWidget(panel);
            auto *h = new QHBoxLayout(box);
            h->setContentsMargins(0, 0, 0, 0);
            auto *slider = new QSlider(Qt::Horizontal, box);
            slider->setAccessibleName(port.name);
            // Integer ports move in whole steps; the rest on a fine grid.
            const double span = double(port.maximum) - port.minimum;
            const int steps = port.integer && span >= 1 && span <= kSliderSteps ? int(span) : kSliderSteps;
            slider->setRange(0, steps);
            slider->setPageStep(std::max(1, steps / 10));
            auto *label = new QLabel(box);
            label->setMinimumWidth(90);
            label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
            h->addWidget(slider, 1);
            h->addWidget(label);
            const VEKLV2Plugin::ControlPort copy = port;
            connect(slider, &QSlider::valueChanged, this, [write, label, copy, steps](int position) {
                const float v = sliderValue(position, copy.minimum, copy.maximum, useLog(copy), copy.integer, steps);
                label->setText(valueText(v, copy));
                write(v);
            });
            row.show = [slider, label, copy, steps](float v) {
                const QSignalBlocker block(slider);
                slider->setValue(sliderPosition(v, copy.minimum, copy.maximum, useLog(copy), steps));
                label->setText(valueText(v, copy));
            };
            row.held = [slider] { return slider->isSliderDown(); };
            field = box;
        }
        form->addRow(port.name, field);
        row.shown = std::nanf("");
        m_rows.push_back(std::move(row));
    }
    // Measured in the sizes the style sheet gives, with the header and the margins around.
    ensurePolished();
    const QSize hint = panel->sizeHint();
    const QMargins m = outer->contentsMargins();
    const int chrome = m.top() + m.bottom() + outer->spacing() + header->sizeHint().height() + 4;
    resize(std::clamp(hint.width() + m.left() + m.right() + 12, 460, 720),
           std::clamp(hint.height() + chrome, 140, 640));
}

void PlayerEffectEditor::refresh()
{
    VEKLV2Plugin *p = plugin();
    if (!p)
        return;
    for (Row &row : m_rows) {
        const float v = p->value(row.control);
        if (std::isnan(v) || v == row.shown || row.held())
            continue;
        row.shown = v;
        row.show(v);
    }
}
