#pragma once

#include "Application.h"

#include <QDBusAbstractAdaptor>
#include <QStringList>

class MprisService;

// org.mpris.MediaPlayer2 on the MPRIS object: who the player is and what it can be asked to do
// as an application. It can be raised when a front end with a window said how; it can be told
// to quit. Main thread.
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
    // The desktop entry's file name without ".desktop".
    QString desktopEntry() const { return Application::identifier(); }
    bool canQuit() const { return true; }
    bool canRaise() const;
    bool hasTrackList() const { return false; }
    QStringList supportedUriSchemes() const { return {QStringLiteral("file")}; }
    // The types of the formats the file reader decodes.
    QStringList supportedMimeTypes() const;

public slots:
    void Raise();
    void Quit();

private:
    MprisService *m_service;
};
