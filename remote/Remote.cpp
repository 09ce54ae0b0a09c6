#include "Remote.h"

#include "core/VEKLog.h"
#include "net/VEKNetworkAcceptor.h"
#include "net/VEKNetworkPipe.h"
#include "settings/UserDefaults.h"


namespace {

Remote *g_shared = nullptr;

quint16 portFromEnvironment()
{
    bool ok = false;
    const int port = qEnvironmentVariableIntValue("QUIVERA_REMOTE_PORT", &ok);
    // 0 asks for any free port (tests running side by side).
    return ok && port >= 0 && port <= 65535 ? quint16(port) : Remote::defaultPort;
}

// Whether `value` holds at most `budget` values in all. A client's own tokens are numbers and
// texts; a few hundred bytes of arrays that share their elements can decode into hundreds of
// thousands of values, which must not be archived back to it at every request.
bool isSmallValue(const QVariant &value, qsizetype &budget)
{
    if (--budget < 0)
        return false;
    if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant &item : value.toList())
            if (!isSmallValue(item, budget))
                return false;
    } else if (value.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            if (!isSmallValue(it.value(), budget))
                return false;
    }
    return true;
}

// Untrusted text goes into the log only in part.
QString describeForLog(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("(null)");
    QString text = value.toString();
    if (text.isEmpty() && value.typeId() != QMetaType::QString)
        text = QStringLiteral("<%1>").arg(QString::fromLatin1(value.typeName()));
    if (text.size() > 200)
        text = text.left(200) + QStringLiteral("...");
    return text;
}

} // namespace

Remote *Remote::start(const Configuration &configuration)
{
    Remote *remote = sharedInstance();
    remote->attach(configuration);
    // A client dropped by an earlier stop() is gone for good.
    if (!remote->m_pipe)
        remote->setConnected(false);
    remote->startNetworkService();
    return remote;
}

void Remote::stop()
{
    if (!g_shared)
        return;
    g_shared->shutdownPipe();
    g_shared->shutdownNetworkService();
    // The host goes away with the launch that made it; a later start() attaches again.
    g_shared->detach();
}

Remote *Remote::sharedInstance()
{
    // Never destroyed: the player window observes it until the very end.
    if (!g_shared)
        g_shared = new Remote(Configuration{}, nullptr);
    return g_shared;
}

Remote::Remote(const Configuration &configuration, QObject *parent) : QObject(parent)
{
    attach(configuration);
}

Remote::~Remote()
{
    shutdownPipe();
    shutdownNetworkService();
    if (g_shared == this)
        g_shared = nullptr;
}

void Remote::attach(const Configuration &configuration)
{
    detach();
    m_host = configuration.host;
    m_defaults = configuration.defaults;
    m_port = configuration.port ? *configuration.port : portFromEnvironment();
    m_name = configuration.name.isEmpty() ? VEKNetworkAcceptor::computerName() : configuration.name;

    // Whatever changed, the whole status goes out again; two changes give two pushes.
    if (m_host) {
        m_observers << connect(m_host, &RemoteHost::currentSongChanged, this, &Remote::sendStatus);
        m_observers << connect(m_host, &RemoteHost::playingChanged, this, &Remote::sendStatus);
    }
    m_observers << connect(&defaults(), &UserDefaults::valueChanged, this,
                           [this](const QString &key) {
                               if (key == QLatin1String("dim") || key == QLatin1String("mute"))
                                   sendStatus();
                           });
}

void Remote::detach()
{
    for (const QMetaObject::Connection &c : std::as_const(m_observers))
        disconnect(c);
    m_observers.clear();
    m_host = nullptr;
}

UserDefaults &Remote::defaults() const
{
    return m_defaults ? *m_defaults : UserDefaults::standard();
}

bool Remote::startNetworkService()
{
    if (m_acceptor)
        shutdownNetworkService();
    m_acceptor = new VEKNetworkAcceptor(this);
    connect(m_acceptor, &VEKNetworkAcceptor::didAcceptConnection, this, &Remote::acceptConnection);
    VEKError error;
    if (!m_acceptor->startup(QString::fromLatin1(serviceDomain), QString::fromLatin1(serviceType),
                             m_name, m_port, acceptorTimeout, &error)) {
        error.alert();
        return false;
    }
    // A free port chosen by the system stays ours for the republications after each client.
    m_port = m_acceptor->port();
    return true;
}

void Remote::shutdownNetworkService()
{
    if (!m_acceptor)
        return;
    VEKNetworkAcceptor *acceptor = m_acceptor;
    m_acceptor = nullptr;
    disconnect(acceptor, nullptr, this, nullptr);
    acceptor->shutdown();
    // Possibly called from inside the acceptor's own signal.
    acceptor->deleteLater();
}

void Remote::shutdownPipe()
{
    if (!m_pipe)
        return;
    VEKNetworkPipe *pipe = m_pipe;
    m_pipe = nullptr;
    disconnect(pipe, nullptr, this, nullptr);
    pipe->close();
    pipe->deleteLater();
}

quint16 Remote::port() const
{
    return m_acceptor ? m_acceptor->port() : 0;
}

void Remote::setConnected(bool connected)
{
    if (connected == m_connected)
        return;
    m_connected = connected;
    emit connectedChanged(connected);
}

void Remote::acceptConnection(VEKNetworkPipe *pipe)
{
    if (m_pipe) {
        // The port closes with the first client; one that slipped in with it is turned away.
        pipe->close();
        pipe->deleteLater();
        return;
    }
    m_pipe = pipe;
    pipe->setParent(this);
    pipe->setMaxIncomingMessageSize(maxRequestSize);
    connect(pipe, &VEKNetworkPipe::received, this, &Remote::pipeReceived);
    connect(pipe, &VEKNetworkPipe::closed, this, &Remote::pipeDisconnected);
    // A client breaking the protocol is logged by the pipe and ends as a disconnection.
    sendStatus();
    shutdownNetworkService();
    setConnected(true);
}

void Remote::pipeDisconnected()
{
    shutdownPipe();
    startNetworkService();
    setConnected(false);
}

void Remote::pipeReceived(const QVariant &message)
{
    const std::optional<QVariantMap> reply = handleRequest(message.toMap());
    if (reply && m_pipe)
        m_pipe->send(*reply);
}

void Remote::sendStatus()
{
    if (!m_pipe)
        return;
    m_pipe->send(*remote_getCurrentStatus(QVariantMap()));
}

std::optional<QVariantMap> Remote::handleRequest(const QVariantMap &request)
{
    const QVariant command = request.value(QStringLiteral("command"));
    const QHash<QString, Command> &table = commandTable();
    const auto it = command.typeId() == QMetaType::QString ? table.constFind(command.toString())
                                                            : table.constEnd();
    if (it == table.constEnd()) {
        VEKLog(QStringLiteral("received illegal command: ") + describeForLog(command));
        return std::nullopt;
    }
    if (!m_host)
        return std::nullopt;
    std::optional<QVariantMap> reply = (this->*(it.value()))(request);
    if (!reply)
        return std::nullopt;
    for (const QString &key : {QStringLiteral("target"), QStringLiteral("action")}) {
        const auto echo = request.constFind(key);
        qsizetype budget = maxEchoedValues;
        if (echo != request.constEnd() && isSmallValue(echo.value(), budget))
            reply->insert(key, echo.value());
    }
    return reply;
}

const QHash<QString, Remote::Command> &Remote::commandTable()
{
    static const QHash<QString, Command> table = {
        {QStringLiteral("play"), &Remote::remote_play},
        {QStringLiteral("next"), &Remote::remote_next},
        {QStringLiteral("previous"), &Remote::remote_previous},
        {QStringLiteral("volumeUp"), &Remote::remote_volumeUp},
        {QStringLiteral("volumeDown"), &Remote::remote_volumeDown},
        {QStringLiteral("dim"), &Remote::remote_dim},
        {QStringLiteral("mute"), &Remote::remote_mute},
        {QStringLiteral("position"), &Remote::remote_position},
        {QStringLiteral("playSong"), &Remote::remote_playSong},
        {QStringLiteral("getCurrentStatus"), &Remote::remote_getCurrentStatus},
        {QStringLiteral("getPlaylistsLastModification"), &Remote::remote_getPlaylistsLastModification},
        {QStringLiteral("getPlaylistLastModification"), &Remote::remote_getPlaylistLastModification},
        {QStringLiteral("getSongsLastModification"), &Remote::remote_getSongsLastModification},
        {QStringLiteral("getPlaylists"), &Remote::remote_getPlaylists},
        {QStringLiteral("getSongsForPlaylist"), &Remote::remote_getSongsForPlaylist},
        {QStringLiteral("getSongs"), &Remote::remote_getSongs},
        {QStringLiteral("getArtists"), &Remote::remote_getArtists},
        {QStringLiteral("getArtistHasMultipleAlbums"), &Remote::remote_getArtistHasMultipleAlbums},
        {QStringLiteral("getAlbumsForArtist"), &Remote::remote_getAlbumsForArtist},
        {QStringLiteral("getSongsForArtist"), &Remote::remote_getSongsForArtist},
        {QStringLiteral("getAlbums"), &Remote::remote_getAlbums},
        {QStringLiteral("getSongsForAlbum"), &Remote::remote_getSongsForAlbum},
        {QStringLiteral("getResultsOfSearch"), &Remote::remote_getResultsOfSearch},
    };
    return table;
}
