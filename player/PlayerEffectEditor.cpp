#include "PlayerEffectEditor.h"

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
    const QString maker = VEKLV2World::shared().effectDescription(p->uri()).value(QStringLiteral("manufacturer")).toString();
    title->setText(QStringLiteral("<b>%1</b>").arg(p->name().toHtmlEscaped()) +
                   (maker.isEmpty() ? QString() : QStringLiteral(" &nbsp;%1").arg(maker.toHtmlEscaped())));
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
    const QSize hint = panel->sizeHint();
    resize(std::clamp(hint.width() + 40, 460, 720), std::clamp(hint.height() + 70, 140, 640));
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
