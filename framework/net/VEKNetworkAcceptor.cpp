#include "VEKNetworkAcceptor.h"

#include "VEKAvahiPoll.h"
#include "VEKNetworkPipe.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"

#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QSysInfo>
#include <QTcpServer>
#include <QTcpSocket>

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

// DNS-SD instance names are one DNS label: at most 63 bytes of UTF-8.
constexpr int maxNameBytes = 63;

QString withoutTrailingDot(QString s)
{
    while (s.endsWith(QLatin1Char('.')))
        s.chop(1);
    return s;
}

QString shortenedToLabel(const QString &name)
{
    QString s = name;
    while (s.toUtf8().size() > maxNameBytes)
        s.chop(s.size() >= 2 && s.at(s.size() - 1).isLowSurrogate() ? 2 : 1);
    return s;
}

QString avahiText(int error) { return QString::fromUtf8(avahi_strerror(error)); }

} // namespace

// The C callbacks only ask for a look at the new state from the event loop: Avahi forbids
// freeing its objects inside them, and the client's first callback comes before
// avahi_client_new() has even returned it.
struct VEKNetworkAcceptorCallbacks {
    static void client(AvahiClient *, AvahiClientState, void *self)
    {
        static_cast<VEKNetworkAcceptor *>(self)->scheduleReconcile();
    }
    static void group(AvahiEntryGroup *, AvahiEntryGroupState, void *self)
    {
        static_cast<VEKNetworkAcceptor *>(self)->scheduleReconcile();
    }
};

VEKNetworkAcceptor::VEKNetworkAcceptor(QObject *parent) : QObject(parent)
{
    m_retryTimer.setSingleShot(true);
    m_deadline.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &VEKNetworkAcceptor::reconcile);
    connect(&m_deadline, &QTimer::timeout, this, &VEKNetworkAcceptor::publicationTimedOut);
}

VEKNetworkAcceptor::~VEKNetworkAcceptor()
{
    if (m_server)
        m_server->close();
    dropClient();
}

bool VEKNetworkAcceptor::startup(const QString &domain, const QString &type, const QString &name,
                                 quint16 port, double timeout, VEKError *error)
{
    const auto failure = [&](const QString &reason) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), ListenFailed,
                                      VEKLocalizedString("Error_networkListen").arg(port),
                                      reason));
        return false;
    };
    if (isListening())
        return failure(QStringLiteral("the service is already running"));
    if (!m_server) {
        m_server = new QTcpServer(this);
        connect(m_server, &QTcpServer::newConnection, this, &VEKNetworkAcceptor::acceptPending);
        connect(m_server, &QTcpServer::acceptError, this,
                [this](QAbstractSocket::SocketError) {
                    emit didRefuseConnection(
                        VEKError(QString::fromLatin1(errorDomain), AcceptFailed,
                                 VEKLocalizedString("Error_networkAccept"),
                                 m_server->errorString()));
                });
    }
    // Any: IPv4 and IPv6 on every interface.
    if (!m_server->listen(QHostAddress::Any, port))
        return failure(m_server->errorString());

    m_domain = withoutTrailingDot(domain);
    m_type = withoutTrailingDot(type);
    m_name = shortenedToLabel(name);
    const double ms = std::isfinite(timeout) ? timeout * 1000.0 : 10000.0;
    m_timeoutMs = int(std::clamp(ms, 1.0, double(INT_MAX)));
    if (!m_poll)
        m_poll = std::make_unique<VEKAvahiPoll>();
    m_announced = false;
    m_failureReported = false;
    if (m_wantPublished)
        m_deadline.start(m_timeoutMs);
    // The daemon is asked from the event loop, so that startup() returns before any news of it.
    scheduleReconcile();
    emit didStartup();
    return true;
}

void VEKNetworkAcceptor::shutdown()
{
    if (!isListening())
        return;
    m_server->close();
    dropClient();
    m_announced = false;
    m_deadline.stop();
    m_retryTimer.stop();
    emit didShutdown();
}

bool VEKNetworkAcceptor::isListening() const { return m_server && m_server->isListening(); }

quint16 VEKNetworkAcceptor::port() const { return isListening() ? m_server->serverPort() : 0; }

void VEKNetworkAcceptor::setPublished(bool published)
{
    if (published == m_wantPublished)
        return;
    m_wantPublished = published;
    if (published && isListening()) {
        m_failureReported = false;
        m_deadline.start(m_timeoutMs);
    }
    // At once: a withdrawal must not wait for the event loop, a client may be looking now.
    reconcile();
}

QString VEKNetworkAcceptor::computerName()
{
    // The name people gave the machine, as systemd's hostnamed keeps it.
    QFile info(QStringLiteral("/etc/machine-info"));
    if (info.open(QIODevice::ReadOnly)) {
        while (!info.atEnd()) {
            const QString line = QString::fromUtf8(info.readLine()).trimmed();
            if (!line.startsWith(QLatin1String("PRETTY_HOSTNAME=")))
                continue;
            QString value = line.mid(16);
            if (value.size() >= 2 && (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\''))
                && value.back() == value.front())
                value = value.mid(1, value.size() - 2);
            value.replace(QLatin1String("\\\""), QLatin1String("\""));
            if (!value.trimmed().isEmpty())
                return value.trimmed();
        }
    }
    const QString host = QSysInfo::machineHostName();
    const qsizetype dot = host.indexOf(QLatin1Char('.'));
    return dot > 0 ? host.left(dot) : host;
}

void VEKNetworkAcceptor::acceptPending()
{
    const QPointer<VEKNetworkAcceptor> alive(this);
    const QMetaMethod acceptSignal = QMetaMethod::fromSignal(&VEKNetworkAcceptor::didAcceptConnection);
    while (alive && isListening() && m_server->hasPendingConnections()) {
        QTcpSocket *socket = m_server->nextPendingConnection();
        if (!isSignalConnected(acceptSignal)) {
            const QString peer = socket->peerAddress().toString();
            socket->abort();
            delete socket;
            emit didRefuseConnection(VEKError(QString::fromLatin1(errorDomain), AcceptFailed,
                                              VEKLocalizedString("Error_networkAccept"),
                                              QStringLiteral("nobody takes connections (from %1)")
                                                  .arg(peer)));
            continue;
        }
        // The pipe reparents the socket away from the server, whose close() would delete it.
        auto *pipe = new VEKNetworkPipe(socket);
        emit didAcceptConnection(pipe);
    }
}

void VEKNetworkAcceptor::scheduleReconcile()
{
    if (m_reconcileQueued)
        return;
    m_reconcileQueued = true;
    QMetaObject::invokeMethod(this, &VEKNetworkAcceptor::reconcile, Qt::QueuedConnection);
}

// Brings the Avahi objects in line with what is wanted, from whatever state they reached.
// Runs from the event loop or from our own calls, never inside an Avahi callback. Signals go
// out last, once the state is consistent, as a slot may delete us.
void VEKNetworkAcceptor::reconcile()
{
    m_reconcileQueued = false;
    if (!isListening() || !m_wantPublished) {
        dropGroup();
        m_announced = false;
        m_deadline.stop();
        m_retryTimer.stop();
        if (!isListening())
            dropClient();
        return;
    }
    if (!m_client && !ensureClient())
        return;

    switch (avahi_client_get_state(m_client)) {
    case AVAHI_CLIENT_FAILURE: {
        // The daemon or the bus went away. A new client waits for them to come back: at once
        // if this one had worked, else after a pause, so that a daemon failing over and over
        // does not keep us busy.
        const int error = avahi_client_errno(m_client);
        const bool hadRun = m_clientRan;
        dropClient();
        m_announced = false;
        if (hadRun)
            scheduleReconcile();
        else
            m_retryTimer.start(m_timeoutMs);
        reportPublishFailure(avahiText(error));
        return;
    }
    case AVAHI_CLIENT_CONNECTING:
        m_announced = false;
        reportPublishFailure(QStringLiteral("the Avahi daemon is not running; the service will "
                                            "be announced when it starts"));
        return;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
        // The daemon is (re)naming the host: our records go back once it runs again.
        if (m_group && m_groupFilled)
            avahi_entry_group_reset(m_group);
        m_groupFilled = false;
        m_announced = false;
        return;
    case AVAHI_CLIENT_S_RUNNING:
        m_clientRan = true;
        break;
    }

    if (!m_group) {
        m_group = avahi_entry_group_new(m_client, VEKNetworkAcceptorCallbacks::group, this);
        if (!m_group) {
            m_retryTimer.start(m_timeoutMs);
            reportPublishFailure(avahiText(avahi_client_errno(m_client)));
            return;
        }
        m_groupFilled = false;
    }
    if (!m_groupFilled) {
        addService();
        return;
    }
    switch (avahi_entry_group_get_state(m_group)) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        if (!m_announced) {
            m_announced = true;
            m_failureReported = false;
            m_deadline.stop();
            VEKLog(QStringLiteral("Remote service announced as \"%1\"").arg(m_name));
            emit published();
        }
        return;
    case AVAHI_ENTRY_GROUP_COLLISION: {
        // Another machine has the name: take the daemon's next one, as "Name #2".
        char *alternative = avahi_alternative_service_name(m_name.toUtf8().constData());
        m_name = QString::fromUtf8(alternative);
        avahi_free(alternative);
        m_announced = false;
        avahi_entry_group_reset(m_group);
        m_groupFilled = false;
        addService();
        return;
    }
    case AVAHI_ENTRY_GROUP_FAILURE: {
        const int error = avahi_client_errno(m_client);
        dropGroup();
        m_announced = false;
        m_retryTimer.start(m_timeoutMs);
        reportPublishFailure(avahiText(error));
        return;
    }
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
        return;
    }
}

bool VEKNetworkAcceptor::ensureClient()
{
    int error = 0;
    m_client = avahi_client_new(m_poll->api(), AVAHI_CLIENT_NO_FAIL,
                                VEKNetworkAcceptorCallbacks::client, this, &error);
    m_clientRan = false;
    if (m_client)
        return true;
    // Without a system bus not even a waiting client can be made: look for it again later.
    m_retryTimer.start(m_timeoutMs);
    reportPublishFailure(avahiText(error));
    return false;
}

void VEKNetworkAcceptor::dropGroup()
{
    if (m_group)
        avahi_entry_group_free(m_group);
    m_group = nullptr;
    m_groupFilled = false;
}

void VEKNetworkAcceptor::dropClient()
{
    dropGroup();
    if (m_client)
        avahi_client_free(m_client);
    m_client = nullptr;
}

void VEKNetworkAcceptor::addService()
{
    const QByteArray type = m_type.toUtf8();
    const QByteArray domain = m_domain.toUtf8();
    int result = AVAHI_ERR_COLLISION;
    // A clash with a service of this machine is told at once; a few renames settle it.
    for (int attempt = 0; attempt < 16 && result == AVAHI_ERR_COLLISION; ++attempt) {
        if (attempt > 0) {
            char *alternative = avahi_alternative_service_name(m_name.toUtf8().constData());
            m_name = QString::fromUtf8(alternative);
            avahi_free(alternative);
        }
        result = avahi_entry_group_add_service(
            m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
            m_name.toUtf8().constData(), type.constData(),
            domain.isEmpty() ? nullptr : domain.constData(), nullptr, port(), nullptr);
    }
    if (result >= 0)
        result = avahi_entry_group_commit(m_group);
    if (result < 0) {
        dropGroup();
        m_retryTimer.start(m_timeoutMs);
        reportPublishFailure(avahiText(result));
        return;
    }
    m_groupFilled = true;
}

void VEKNetworkAcceptor::reportPublishFailure(const QString &reason)
{
    if (m_failureReported)
        return;
    m_failureReported = true;
    VEKLog(QStringLiteral("Remote service not announced: ") + reason);
    emit publishFailed(VEKError(QString::fromLatin1(errorDomain), PublishFailed,
                                VEKLocalizedString("Error_networkPublish"), reason));
}

void VEKNetworkAcceptor::publicationTimedOut()
{
    if (m_announced || !isListening() || !m_wantPublished)
        return;
    reportPublishFailure(QStringLiteral("not announced within %1 s").arg(m_timeoutMs / 1000.0));
}
