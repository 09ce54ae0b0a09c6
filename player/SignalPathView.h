#pragma once

#include "audio/SignalPath.h"

#include <QMetaObject>
#include <QPointer>
#include <QWidget>

class Stream;

// The signal path drawn as a chain in the player's dark look: the song's format at the top, each
// stage that changes the samples below it (amber where it alters them, grey where an ALSA layer
// only repacks the words), the format the device reported at the bottom, and the verdict with
// its reasons. The line stays in the accent colour as long as the samples are the song's own.
//
// It shows whatever it is given (setPath) or follows a stream (setStream): then it redraws on
// every signalPathChanged(). Its height follows its width (heightForWidth). The whole path is
// also its accessible description and its tooltip, in words. Main thread only.
class SignalPathView : public QWidget {
    Q_OBJECT
public:
    explicit SignalPathView(QWidget *parent = nullptr);

    const SignalPath &path() const { return m_path; }
    void setPath(const SignalPath &path);
    // Follows `stream` (null: stops following and shows nothing playing).
    void setStream(Stream *stream);

    // Inside a titled section of another panel (the preferences): no panel or title of its own,
    // the verdict first in its header row.
    void setEmbedded(bool embedded);

    // The path in words, one line per node: what the description and the tooltip say.
    static QString describe(const SignalPath &path);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Node {
        QString title;
        QString detail;
        enum Mark { Untouched, Changes, Repacks } mark = Untouched;
    };
    QList<Node> nodes() const;
    int headerHeight() const;
    // The height of the reasons' text at `width`.
    int footerHeight(int width) const;

    SignalPath m_path;
    bool m_embedded = false;
    QPointer<Stream> m_stream;
    QMetaObject::Connection m_connection;
};
