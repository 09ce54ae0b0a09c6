#include "MprisRootAdaptor.h"

#include "MprisService.h"

MprisRootAdaptor::MprisRootAdaptor(MprisService *service)
    : QDBusAbstractAdaptor(service), m_service(service)
{
}

QStringList MprisRootAdaptor::supportedMimeTypes() const
{
    // Each format under the names desktops actually use for it (shared-mime-info's and the
    // registered ones).
    return {
        QStringLiteral("audio/aiff"),          QStringLiteral("audio/x-aiff"),
        QStringLiteral("audio/wav"),           QStringLiteral("audio/x-wav"),
        QStringLiteral("audio/x-caf"),         QStringLiteral("audio/mpeg"),
        QStringLiteral("audio/mp4"),           QStringLiteral("audio/x-m4a"),
        QStringLiteral("audio/ogg"),           QStringLiteral("audio/x-vorbis+ogg"),
        QStringLiteral("audio/x-flac+ogg"),    QStringLiteral("audio/flac"),
        QStringLiteral("audio/x-flac"),        QStringLiteral("audio/x-ape"),
        QStringLiteral("audio/x-tta"),         QStringLiteral("audio/x-wavpack"),
        QStringLiteral("audio/x-musepack"),
    };
}

bool MprisRootAdaptor::canRaise() const { return m_service->canRaise(); }

void MprisRootAdaptor::Raise() { m_service->raise(); }

void MprisRootAdaptor::Quit() { m_service->quit(); }
