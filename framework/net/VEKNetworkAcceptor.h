#pragma once

#include "core/VEKError.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

class QTcpServer;
class VEKAvahiPoll;
class VEKNetworkPipe;
struct AvahiClient;
struct AvahiEntryGroup;

// The listening side of the remote service: a TCP port on all interfaces, announced on the
// local network through the Avahi daemon (the DNS-SD service type, e.g. "_quivera1._tcp.", in
// the domain "local."). Each accepted connection becomes a VEKNetworkPipe.
//
// Main thread (or whichever thread makes it): every call and every signal happens there; the
// Avahi client runs on that thread's event loop.
//
// Serving and announcing are independent. Binding the port is the only failure of startup();
// the announcement may fail, or wait for a daemon that is not running, and that is reported
// through publishFailed() while the port keeps accepting. Without a daemon the acceptor keeps
// trying, and announces the service as soon as one appears.
class VEKNetworkAcceptor : public QObject {
    Q_OBJECT
public:
    static constexpr quint16 defaultPort = 8383;

    inline static constexpr char errorDomain[] = "VEKNetworkAcceptor";
    enum ErrorCode : qint64 {
        ListenFailed = 1,  // the port could not be bound
        PublishFailed = 2, // the service could not be announced (yet)
        AcceptFailed = 3,  // a connection could not be taken
    };

    explicit VEKNetworkAcceptor(QObject *parent = nullptr);
    // Withdraws the announcement and closes the port; pipes already handed out live on.
    ~VEKNetworkAcceptor() override;

    // Binds `port` (0: any free port, see port()), starts accepting and starts announcing
    // `name` under `type` in `domain` (trailing dots are allowed). `timeout`, in seconds, is
    // how long the announcement may take before publishFailed() reports it, and how often a
    // missing D-Bus system bus is looked for again. True and didStartup() on success; false and
    // `error` (for an alert) when the port cannot be bound or the acceptor already runs.
    bool startup(const QString &domain, const QString &type, const QString &name, quint16 port,
                 double timeout, VEKError *error = nullptr);

    // Withdraws the announcement, stops accepting and closes the port: connecting is refused.
    // Pipes handed out earlier are not touched. Emits didShutdown() if it was running.
    void shutdown();

    bool isListening() const;
    // The bound port, or 0 when not listening.
    quint16 port() const;

    // Withdraws (false) or restores (true, the default) the announcement while the port stays
    // as it is.
    void setPublished(bool published);
    bool wantsPublished() const { return m_wantPublished; }
    // The daemon has confirmed the announcement and it is on the network now.
    bool isAnnounced() const { return m_announced; }
    // The announced instance name: the requested one, or the daemon's alternative after a
    // clash with another machine's.
    QString publishedName() const { return m_name; }

    // The computer's name for the announcement: the pretty host name if one is set, else the
    // host name.
    static QString computerName();

signals:
    void didStartup();
    // The announcement is on the network (again).
    void published();
    // The announcement failed, or could not be made yet; serving goes on. Reported once per
    // attempt, until an announcement succeeds.
    void publishFailed(const VEKError &error);
    // A client connected. The receiver takes ownership of `pipe` (which has no parent); when
    // nothing is connected to this signal the connection is closed and refused instead.
    void didAcceptConnection(VEKNetworkPipe *pipe);
    void didRefuseConnection(const VEKError &error);
    void didShutdown();
    // Slots of these signals that want the acceptor gone use deleteLater().

private:
    void acceptPending();
    void scheduleReconcile();
    void reconcile();
    bool ensureClient();
    void dropClient();
    void dropGroup();
    void addService();
    void reportPublishFailure(const QString &reason);
    void publicationTimedOut();

    friend struct VEKNetworkAcceptorCallbacks; // Avahi's C callbacks

    QTcpServer *m_server = nullptr;
    std::unique_ptr<VEKAvahiPoll> m_poll;
    AvahiClient *m_client = nullptr;
    AvahiEntryGroup *m_group = nullptr;
    QString m_domain;
    QString m_type;
    QString m_name;
    int m_timeoutMs = 10000;
    bool m_clientRan = false;   // the current client has reached the running daemon
    bool m_groupFilled = false; // the service is in the group (committed or on its way)
    bool m_wantPublished = true;
    bool m_announced = false;
    bool m_failureReported = false;
    bool m_reconcileQueued = false;
    QTimer m_retryTimer;   // looks for the system bus again
    QTimer m_deadline;     // the announcement's time limit
};
