#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

// One player per user session. The first `quivera` listens on a local socket in
// $XDG_RUNTIME_DIR; a later start hands its request (files to import, a transport command) to it
// and exits. A lock file beside the socket makes the choice of who listens atomic, so two
// players started at once still end as one.
//
// Main thread only. No widgets: the front end decides what a request does.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // What a start asks of the running player.
    struct Request {
        // "open" (import `paths`, then show the player), "play-pause", "next", "previous", or
        // "raise" (just show the player).
        QString command;
        // Absolute paths, so the running player needs not know the caller's folder.
        QStringList paths;
    };

    // The socket the player of this session listens on: quivera.socket in $XDG_RUNTIME_DIR,
    // else in a per-user folder of the system's temporary folder.
    static QString defaultSocketPath();

    explicit SingleInstance(QString socketPath = defaultSocketPath(), QObject *parent = nullptr);
    ~SingleInstance() override;

    enum class Role { Primary, HandedOver, Failed };
    // Hands `request` to a running player (HandedOver), or becomes the running player and
    // listens (Primary). Failed: neither worked (no writable runtime folder); the caller runs
    // on alone.
    Role claimOrHandOver(const Request &request, int timeoutMs = 5000);

    bool isListening() const { return m_server && m_server->isListening(); }
    const QString &socketPath() const { return m_socketPath; }

    // The request of a command line: --play-pause, --next, --previous or files; none of them
    // means "raise". Relative paths are made absolute against the current folder.
    static Request requestForArguments(const QStringList &paths, const QString &command);

signals:
    // A later start asked for something. Delivered on the main thread.
    void requestReceived(const SingleInstance::Request &request);

private:
    bool handOver(const Request &request, int timeoutMs);
    bool listen();
    void readRequest(class QLocalSocket *socket);

    QString m_socketPath;
    std::unique_ptr<QLocalServer> m_server;
};
