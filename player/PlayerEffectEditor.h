#pragma once

#include "graph/VEKAudioProcessor.h"

#include <QTimer>
#include <QWidget>

#include <functional>
#include <vector>

class VEKLV2Plugin;

// The editor window of one effect: a generic panel of its plugin's control ports, one row each.
// A port with a range gets a slider over that range (on a log scale where the plugin asks for
// one, in whole steps for integer ports), a toggle gets a check box, an enumeration a list of its
// labelled values; each row names the port and shows its value with its unit. Values the plugin
// reports (meters, latency) show read-only. The rows follow the plugin: a value changed elsewhere
// (settings restored, another program through the remote) shows within a quarter second.
//
// The editor keeps the processor alive while it is open, and asks it for its plugin afresh each
// time, since the processor makes its plugin again when the stream's rate changes. Main thread.
class PlayerEffectEditor : public QWidget {
    Q_OBJECT
public:
    explicit PlayerEffectEditor(VEKAudioProcessorPtr processor, QWidget *parent = nullptr);
    ~PlayerEffectEditor() override;

    const VEKAudioProcessorPtr &processor() const { return m_processor; }

    // Reads every value from the plugin into its row (the timer calls it).
    void refresh();

    // The slider position (0 to `steps`) of a value of a port with this range, and back: linear,
    // logarithmic for a log port with a positive range, whole numbers for an integer port.
    static int sliderPosition(float value, float minimum, float maximum, bool logarithmic, int steps);
    static float sliderValue(int position, float minimum, float maximum, bool logarithmic, bool integer,
                             int steps);

private:
    struct Row {
        int control = -1;                   // index into the plugin's controlPorts()
        std::function<void(float)> show;    // puts a value into the row's widgets
        std::function<bool()> held;         // the user is dragging it: leave it alone
        float shown = 0;
    };

    VEKLV2Plugin *plugin() const;
    void build();

    VEKAudioProcessorPtr m_processor;
    std::vector<Row> m_rows;
    QTimer m_refresh;
};
