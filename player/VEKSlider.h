#pragma once

#include <QPointer>
#include <QSlider>

#include <functional>

class QLabel;

// A slider over a range of real values that, while the user drags it, shows beside its knob a
// text its owner gives for the value under the knob (an angle, a gain, a percentage).
//
// The range is cut into `steps` equal positions; doubleValue() is the value of the position.
// edited() says that the user moved it (mouse, keys, wheel, or an assistive tool setting the
// value); setDoubleValue() moves it quietly, so a pane filling its controls from the settings
// never writes them back. Main thread only.
class VEKSlider : public QSlider {
    Q_OBJECT
public:
    explicit VEKSlider(Qt::Orientation orientation = Qt::Horizontal, QWidget *parent = nullptr);
    ~VEKSlider() override;

    void setValueRange(double minimum, double maximum, int steps);
    double minimumValue() const { return m_minimum; }
    double maximumValue() const { return m_maximum; }

    double doubleValue() const;
    // Quiet: no edited(). The nearest position to `value`, within the range.
    void setDoubleValue(double value);
    // The position that stands for `value`.
    int positionFor(double value) const;

    // The text shown beside the knob while dragging; no function, or an empty text, shows none.
    using TipText = std::function<QString(const VEKSlider &)>;
    void setTipText(TipText tipText);
    QString tipText() const;
    // Whether the tip is up now (while the knob is held).
    bool isTipShown() const;
    // A label that shows the tip text at all times, to stand beside the slider; the slider keeps
    // it up to date.
    QLabel *makeValueLabel(QWidget *parent);

signals:
    void edited(double value);

private:
    void showTip();
    void hideTip();
    void placeTip();

    double m_minimum = 0.0;
    double m_maximum = 1.0;
    bool m_quiet = false;
    TipText m_tipText;
    QPointer<QLabel> m_tip;
    QPointer<QLabel> m_valueLabel;
};
