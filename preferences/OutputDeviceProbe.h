#pragma once

#include "OutputDevices.h"

#include <QObject>
#include <QPointer>

class Stream;

// Keeps the Output and Advanced panes' picture of the devices: asks ALSA on a thread of its own
// when asked to refresh, when a card comes or goes, and when the stream moves to another device,
// and tells changed() on the main thread when the new picture is in. A refresh asked while one
// runs runs once more after it. Main thread, except probe().
class OutputDeviceProbe : public QObject {
    Q_OBJECT
public:
    // Without `probing`, nothing asks ALSA: the picture is what setDevices() gave (tests).
    OutputDeviceProbe(Stream *stream, bool probing, QObject *parent = nullptr);
    ~OutputDeviceProbe() override;

    const OutputDevices &devices() const { return m_devices; }
    void setDevices(const OutputDevices &devices);
    // Asks ALSA again, once the probe is active (a card change or a device change before the
    // preferences were first opened asks nothing).
    void refresh();
    // The preferences were opened: from now on the picture is kept up to date.
    void activate();
    // Exclusive use was switched on the device in use.
    void setExclusive(bool exclusive);

    // Every device with its sources, and the rates of `currentUID`. Slow: any thread but the main one.
    static OutputDevices probe(const QString &currentUID);

signals:
    void changed();

private:
    QString currentUID() const;
    void finished(OutputDevices devices);

    QPointer<Stream> m_stream;
    bool m_probing;
    bool m_active = false;
    bool m_running = false;
    bool m_again = false;
    OutputDevices m_devices;
};
