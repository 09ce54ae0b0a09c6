#include "MprisPlayerAdaptor.h"

#include "MprisService.h"


MprisPlayerAdaptor::MprisPlayerAdaptor(MprisService *service)
    : QDBusAbstractAdaptor(service), m_service(service)
{
    connect(service, &MprisService::seeked, this, &MprisPlayerAdaptor::Seeked);
}

QString MprisPlayerAdaptor::playbackStatus() const { return m_service->playbackStatus(); }
QString MprisPlayerAdaptor::loopStatus() const { return m_service->loopStatus(); }
void MprisPlayerAdaptor::setLoopStatus(const QString &status) { m_service->setLoopStatus(status); }
void MprisPlayerAdaptor::setRate(double rate)
{
    if (rate == 0.0)
        m_service->pause();
}

bool MprisPlayerAdaptor::shuffle() const { return m_service->shuffle(); }
void MprisPlayerAdaptor::setShuffle(bool shuffle) { m_service->setShuffle(shuffle); }
QVariantMap MprisPlayerAdaptor::metadata() const { return m_service->metadata(); }
double MprisPlayerAdaptor::volume() const { return m_service->volume(); }
void MprisPlayerAdaptor::setVolume(double volume) { m_service->setVolume(volume); }
qlonglong MprisPlayerAdaptor::position() const { return m_service->position(); }
bool MprisPlayerAdaptor::canGoNext() const { return m_service->canGoNext(); }
bool MprisPlayerAdaptor::canGoPrevious() const { return m_service->canGoPrevious(); }
bool MprisPlayerAdaptor::canPlay() const { return m_service->canPlay(); }
bool MprisPlayerAdaptor::canPause() const { return m_service->canPause(); }
bool MprisPlayerAdaptor::canSeek() const { return m_service->canSeek(); }
bool MprisPlayerAdaptor::canControl() const { return m_service->canControl(); }

void MprisPlayerAdaptor::Next() { m_service->next(); }
void MprisPlayerAdaptor::Previous() { m_service->previous(); }
void MprisPlayerAdaptor::Pause() { m_service->pause(); }
void MprisPlayerAdaptor::PlayPause() { m_service->playPause(); }
void MprisPlayerAdaptor::Stop() { m_service->stop(); }
void MprisPlayerAdaptor::Play() { m_service->play(); }
void MprisPlayerAdaptor::Seek(qlonglong Offset) { m_service->seek(Offset); }

void MprisPlayerAdaptor::SetPosition(const QDBusObjectPath &TrackId, qlonglong Position)
{
    m_service->setPosition(TrackId.path(), Position);
}

void MprisPlayerAdaptor::OpenUri(const QString &Uri)
{
    QString problem;
    if (!m_service->openUri(Uri, &problem) && m_service->calledFromDBus())
        m_service->sendErrorReply(QDBusError::InvalidArgs, problem);
}
