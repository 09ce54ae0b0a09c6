#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>

class MprisService;

// org.mpris.MediaPlayer2 on the MPRIS object: who the player is and what it can be asked to do
// as an application. Without windows it can't be raised; it can be told to quit. Main thread.
class MprisRootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)
    Q_PROPERTY(bool CanQuit READ canQuit)
    Q_PROPERTY(bool CanRaise READ canRaise)
    Q_PROPERTY(bool HasTrackList READ hasTrackList)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes)
public:
    explicit MprisRootAdaptor(MprisService *service);

    QString identity() const { return QStringLiteral("Quivera"); }
    QString desktopEntry() const { return QStringLiteral("quivera"); }
    bool canQuit() const { return true; }
    bool canRaise() const { return false; }
    bool hasTrackList() const { return false; }
    QStringList supportedUriSchemes() const { return {QStringLiteral("file")}; }
    // The types of the formats the file reader decodes.
    QStringList supportedMimeTypes() const;

public slots:
    // There is no window to raise.
    void Raise() {}
    void Quit();

private:
    MprisService *m_service;
};
