#include "VEKNetworkPipe.h"

#include "VEKKeyedArchive.h"
#include "core/VEKLog.h"

#include <QPointer>
#include <QTcpSocket>
#include <QThread>

#include <algorithm>

#include <malloc.h>

namespace {

// Qt's own buffer in front of ours: the socket stops reading from the kernel when it is full,
// so a flood waits in TCP's window instead of our memory.
constexpr qint64 socketBufferSize = 256 * 1024;
constexpr qint64 readChunk = 64 * 1024;

} // namespace

VEKNetworkPipe::VEKNetworkPipe(QTcpSocket *socket, QObject *parent)
    : QObject(parent), m_socket(socket)
{
    m_socket->setParent(this);
    m_socket->setReadBufferSize(socketBufferSize);
    // Replies are small and a client waits for each: do not let Nagle hold them back.
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_socket->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    m_peer = m_socket->peerAddress().toString();
    connect(m_socket, &QTcpSocket::connected, this,
            [this] { m_peer = m_socket->peerAddress().toString(); });
    connect(m_socket, &QTcpSocket::readyRead, this, &VEKNetworkPipe::readFrames);
    connect(m_socket, &QTcpSocket::bytesWritten, this, &VEKNetworkPipe::wrote);
    for (QTimer *timer : {&m_inputDeadline, &m_outputDeadline}) {
        timer->setSingleShot(true);
        timer->setInterval(stallTimeoutMs);
    }
    connect(&m_inputDeadline, &QTimer::timeout, this, [this] {
        breakConnection(!m_reader.atBoundary() ? QStringLiteral("a message stalled part-way")
                                               : QStringLiteral("no message after connecting"));
    });
    connect(&m_outputDeadline, &QTimer::timeout, this,
            [this] { breakConnection(QStringLiteral("the client does not read its replies")); });
    m_inputDeadline.start();
    connect(m_socket, &QTcpSocket::disconnected, this, &VEKNetworkPipe::connectionEnded);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &VEKNetworkPipe::connectionEnded);
    if (m_socket->state() == QAbstractSocket::UnconnectedState) {
        m_open = false;
    } else if (m_socket->bytesAvailable() > 0) {
        // Bytes that came before we were listening would otherwise wait for the next ones.
        QMetaObject::invokeMethod(this, &VEKNetworkPipe::readFrames, Qt::QueuedConnection);
    }
}

VEKNetworkPipe::~VEKNetworkPipe()
{
    m_open = false;
    // Before QObject's destructor deletes the socket: it would signal us while we are half gone.
    m_socket->disconnect(this);
    m_socket->abort();
    delete m_socket;
    // A client's large messages leave freed pages inside the heap; hand them back, so the
    // memory a client cost returns when it goes.
    ::malloc_trim(0);
}

void VEKNetworkPipe::setStallTimeout(int ms)
{
    m_inputDeadline.setInterval(ms);
    m_outputDeadline.setInterval(ms);
    if (m_inputDeadline.isActive())
        m_inputDeadline.start();
}

bool VEKNetworkPipe::send(const QVariant &message)
{
    if (!isOpen())
        return false;
    if (message.typeId() != QMetaType::QVariantMap && message.typeId() != QMetaType::QVariantHash) {
        VEKLog(QStringLiteral("Message not sent: it is not a dictionary"));
        return false;
    }
    VEKError error;
    const QByteArray archive = VEKKeyedArchive::archivedData(message, &error);
    if (archive.isEmpty()) {
        VEKLog(QStringLiteral("Message not sent: ") + error.text());
        return false;
    }
    if (archive.size() > maxMessageSize) {
        VEKLog(QStringLiteral("Message not sent: %1 bytes is more than a frame holds")
                   .arg(archive.size()));
        return false;
    }
    // The archive goes to the socket as it is, after a header of its own, rather than copied
    // into a frame: the socket keeps a large block by reference, and so do queued calls.
    if (QThread::currentThread() == thread()) {
        writeFrame(archive);
    } else {
        if (m_queued.fetch_add(archive.size()) + archive.size() > maxPendingBytes) {
            m_queued.fetch_sub(archive.size());
            QMetaObject::invokeMethod(
                this, [this] { breakConnection(QStringLiteral("the client does not read its replies")); },
                Qt::QueuedConnection);
            return false;
        }
        QMetaObject::invokeMethod(
            this,
            [this, archive] {
                m_queued.fetch_sub(archive.size());
                writeFrame(archive);
            },
            Qt::QueuedConnection);
    }
    return true;
}

void VEKNetworkPipe::writeFrame(const QByteArray &archive)
{
    if (!isOpen())
        return;
    if (m_socket->bytesToWrite() + archive.size() > maxPendingBytes) {
        breakConnection(QStringLiteral("the client does not read its replies"));
        return;
    }
    const quint32 length = quint32(archive.size());
    const char header[4] = {char(length >> 24), char(length >> 16), char(length >> 8),
                            char(length)};
    m_socket->write(header, sizeof header);
    m_socket->write(archive);
    // To the system at once if it takes it: what it does not take waits, and is watched.
    m_socket->flush();
    if (m_socket->bytesToWrite() > 0 && !m_outputDeadline.isActive())
        m_outputDeadline.start();
}

void VEKNetworkPipe::wrote()
{
    if (m_socket->bytesToWrite() > 0) {
        m_outputDeadline.start(); // moving: a new period
        return;
    }
    m_outputDeadline.stop();
    // Requests wait while replies do (see readFrames).
    if (isOpen() && m_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &VEKNetworkPipe::readFrames, Qt::QueuedConnection);
}

void VEKNetworkPipe::close()
{
    if (!m_open.exchange(false))
        return;
    m_socket->disconnectFromHost();
}

QHostAddress VEKNetworkPipe::peerAddress() const { return m_socket->peerAddress(); }

void VEKNetworkPipe::readFrames()
{
    const QPointer<VEKNetworkPipe> alive(this);
    QByteArray chunk;
    // The next request waits until the replies to the last have gone: a peer that does not
    // read then stops being read, and its requests wait in TCP's window, not in our memory.
    while (isOpen() && m_socket->bytesAvailable() > 0 && m_socket->bytesToWrite() == 0) {
        // Never more than the current frame still wants, so a chunk is always taken whole.
        const qint64 want = std::min<qint64>({qint64(m_reader.wanted()), readChunk,
                                              m_socket->bytesAvailable()});
        chunk.resize(qsizetype(want));
        const qint64 got = m_socket->read(chunk.data(), want);
        if (got <= 0)
            break;
        m_reader.feed(chunk.constData(), qsizetype(got));
        if (m_reader.failed()) {
            breakConnection(m_reader.error());
            return;
        }
        if (!m_reader.hasFrame()) {
            // A frame begun must be whole within the limit, however slowly its bytes come.
            if (!m_inputDeadline.isActive())
                m_inputDeadline.start();
            continue;
        }
        m_hadMessage = true;
        m_inputDeadline.stop();
        VEKError error;
        const QVariant message = VEKKeyedArchive::unarchive(m_reader.takeFrame(), &error);
        if (!message.isValid()) {
            breakConnection(error.failureReason());
            return;
        }
        if (message.typeId() != QMetaType::QVariantMap) {
            breakConnection(QStringLiteral("the message is not a dictionary"));
            return;
        }
        emit received(message);
        if (!alive)
            return;
    }
}

void VEKNetworkPipe::breakConnection(const QString &reason)
{
    if (!m_open.exchange(false))
        return;
    VEKLog(QStringLiteral("Remote connection from %1 dropped: %2").arg(m_peer, reason));
    m_socket->abort();
    const QPointer<VEKNetworkPipe> alive(this);
    emit protocolError(reason);
    if (alive)
        emit closed();
}

void VEKNetworkPipe::connectionEnded()
{
    if (!isOpen())
        return;
    // What arrived just before the end is still a message.
    const QPointer<VEKNetworkPipe> alive(this);
    readFrames();
    if (!alive || !m_open.exchange(false))
        return;
    if (!m_reader.atBoundary())
        VEKLog(QStringLiteral("Remote connection from %1 ended inside a message").arg(m_peer));
    emit closed();
}
