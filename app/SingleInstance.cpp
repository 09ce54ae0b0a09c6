#include "SingleInstance.h"

#include "core/VEKLog.h"

#include <QDataStream>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>
#include <QTimer>
#include <unistd.h>

namespace {
constexpr quint32 kMagic = 0x51564931; // "QVI1"
// A request names a command and paths; anything larger is not one of ours.
constexpr quint32 kMaxRequest = 16u << 20;
constexpr char kTaken = 1;

QByteArray encode(const SingleInstance::Request &request)
{
    QByteArray body;
    QDataStream out(&body, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << kMagic << request.command << request.paths;
    QByteArray frame;
    QDataStream header(&frame, QIODevice::WriteOnly);
    header << quint32(body.size());
    return frame + body;
}
} // namespace

QString SingleInstance::defaultSocketPath()
{
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        // No runtime folder (a bare console login): one of our own, private to the user.
        folder = QDir::tempPath() + QStringLiteral("/quivera-%1").arg(::getuid());
        QDir().mkpath(folder);
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    return folder + QStringLiteral("/quivera.socket");
}

SingleInstance::SingleInstance(QString socketPath, QObject *parent)
    : QObject(parent), m_socketPath(std::move(socketPath))
{
}

SingleInstance::~SingleInstance()
{
    if (m_server)
        m_server->close(); // removes the socket file
}

SingleInstance::Request SingleInstance::requestForArguments(const QStringList &paths,
                                                            const QString &command)
{
    Request request;
    for (const QString &path : paths)
        request.paths.append(QFileInfo(path).absoluteFilePath());
    if (!command.isEmpty())
        request.command = command;
    else
        request.command = request.paths.isEmpty() ? QStringLiteral("raise") : QStringLiteral("open");
    return request;
}

SingleInstance::Role SingleInstance::claimOrHandOver(const Request &request, int timeoutMs)
{
    // Held while deciding: a second start waits here until the first one listens.
    QLockFile lock(m_socketPath + QStringLiteral(".lock"));
    lock.setStaleLockTime(0);
    if (!lock.tryLock(timeoutMs)) {
        VEKLog(QStringLiteral("Could not take the instance lock %1").arg(lock.fileName()));
        return Role::Failed;
    }
    if (handOver(request, timeoutMs))
        return Role::HandedOver;
    return listen() ? Role::Primary : Role::Failed;
}

bool SingleInstance::handOver(const Request &request, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    socket.write(encode(request));
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    // The running player answers once it has the whole request: then this start may go.
    while (socket.bytesAvailable() < 1)
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    char answer = 0;
    return socket.read(&answer, 1) == 1 && answer == kTaken;
}

bool SingleInstance::listen()
{
    // Nobody answered: a socket file left here belongs to a player that has gone.
    QLocalServer::removeServer(m_socketPath);
    m_server = std::make_unique<QLocalServer>();
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath)) {
        VEKLog(QStringLiteral("Could not listen on %1: %2").arg(m_socketPath, m_server->errorString()));
        m_server.reset();
        return false;
    }
    connect(m_server.get(), &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            // A client that connects and says nothing is dropped.
            QTimer::singleShot(10000, socket, [socket] { socket->abort(); });
            readRequest(socket);
        }
    });
    return true;
}

void SingleInstance::readRequest(QLocalSocket *socket)
{
    if (socket->bytesAvailable() < qint64(sizeof(quint32)))
        return;
    quint32 size = 0;
    {
        QDataStream header(socket->peek(sizeof(quint32)));
        header >> size;
    }
    if (size > kMaxRequest) {
        socket->abort();
        return;
    }
    if (socket->bytesAvailable() < qint64(sizeof(quint32) + size))
        return;
    socket->skip(sizeof(quint32));
    QDataStream in(socket->read(size));
    in.setVersion(QDataStream::Qt_6_4);
    quint32 magic = 0;
    Request request;
    in >> magic >> request.command >> request.paths;
    if (magic != kMagic || in.status() != QDataStream::Ok) {
        socket->abort();
        return;
    }
    socket->write(&kTaken, 1);
    socket->disconnectFromServer();
    emit requestReceived(request);
}
