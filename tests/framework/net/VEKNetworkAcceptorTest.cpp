#include "NetTestSupport.h"
#include "net/VEKNetworkAcceptor.h"
#include "net/VEKNetworkPipe.h"
#include "support/Loopback.h"
#include "support/TestEnvironment.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <gtest/gtest.h>

using NetTestSupport::waitUntil;
using TestEnvironment::connects;
using TestEnvironment::systemBusSocket;

namespace {

class NoBus {
public:
    NoBus() { EXPECT_FALSE(QFile::exists(systemBusSocket())); }
};

} // namespace

TEST(NetworkAcceptor, ATakenPortIsAnErrorForAnAlert)
{
    NoBus noBus;
    QTcpServer squatter;
    ASSERT_TRUE(squatter.listen(QHostAddress::Any, 0));
    VEKNetworkAcceptor acceptor;
    VEKError error;
    EXPECT_FALSE(acceptor.startup("local.", "_quivera1._tcp.", "test", squatter.serverPort(), 10.0,
                                  &error));
    EXPECT_EQ(error.domain(), QString::fromLatin1(VEKNetworkAcceptor::errorDomain));
    EXPECT_EQ(error.code(), VEKNetworkAcceptor::ListenFailed);
    EXPECT_TRUE(error.localizedDescription().contains(QString::number(squatter.serverPort())))
        << error.text().toStdString();
    EXPECT_FALSE(error.failureReason().isEmpty());
    EXPECT_FALSE(acceptor.isListening());

    // Once the port is free, the same acceptor starts.
    const quint16 port = squatter.serverPort();
    squatter.close();
    EXPECT_TRUE(acceptor.startup("local.", "_quivera1._tcp.", "test", port, 10.0, &error));
    EXPECT_EQ(acceptor.port(), port);
    VEKError again;
    EXPECT_FALSE(acceptor.startup("local.", "_quivera1._tcp.", "test", 0, 10.0, &again))
        << "a running acceptor does not start twice";
}

TEST(NetworkAcceptor, WithoutABusTheServiceIsReportedUnpublishedAndStillServes)
{
    NoBus noBus;
    VEKNetworkAcceptor acceptor;
    QList<VEKError> failures;
    QList<VEKNetworkPipe *> pipes;
    bool started = false;
    QObject::connect(&acceptor, &VEKNetworkAcceptor::didStartup, [&] { started = true; });
    QObject::connect(&acceptor, &VEKNetworkAcceptor::publishFailed,
                     [&](const VEKError &e) { failures.append(e); });
    QObject::connect(&acceptor, &VEKNetworkAcceptor::didAcceptConnection, &acceptor,
                     [&](VEKNetworkPipe *p) {
                         p->setParent(&acceptor);
                         pipes.append(p);
                     });
    VEKError error;
    ASSERT_TRUE(acceptor.startup("local.", "_quivera1._tcp.", "test", 0, 0.3, &error))
        << error.text().toStdString();
    EXPECT_TRUE(started);
    EXPECT_TRUE(failures.isEmpty()) << "the daemon is asked after startup() returns";

    ASSERT_TRUE(waitUntil([&] { return !failures.isEmpty(); }));
    EXPECT_EQ(failures.first().code(), VEKNetworkAcceptor::PublishFailed);
    EXPECT_FALSE(acceptor.isAnnounced());
    // It keeps looking for the bus every 0.3 s, but says so only once.
    waitUntil([] { return false; }, 1000);
    EXPECT_EQ(failures.size(), 1);

    EXPECT_TRUE(connects(acceptor.port()));
    ASSERT_TRUE(waitUntil([&] { return pipes.size() == 1; }));
    EXPECT_TRUE(pipes.first()->isOpen());
}

TEST(NetworkAcceptor, AConnectionNobodyTakesIsRefused)
{
    NoBus noBus;
    VEKNetworkAcceptor acceptor;
    acceptor.setPublished(false);
    QList<VEKError> refusals;
    QObject::connect(&acceptor, &VEKNetworkAcceptor::didRefuseConnection,
                     [&](const VEKError &e) { refusals.append(e); });
    ASSERT_TRUE(acceptor.startup("local.", "_quivera1._tcp.", "test", 0, 10.0));
    QTcpSocket s;
    s.connectToHost(QHostAddress::LocalHost, acceptor.port());
    ASSERT_TRUE(waitUntil([&] { return refusals.size() == 1; }));
    EXPECT_EQ(refusals.first().code(), VEKNetworkAcceptor::AcceptFailed);
    EXPECT_TRUE(waitUntil([&] { return s.state() == QAbstractSocket::UnconnectedState; }));
}

// ---------------------------------------------------------------------------------------------
// A real Avahi daemon on a private system bus, restricted to the loopback interface.

using TestEnvironment::PrivateAvahi;

// One test for the whole life of the announcement, so that only one daemon runs at a time
// (avahi-daemon keeps its pid file at a fixed place).
TEST(NetworkAcceptorAvahi, TheAnnouncementFollowsTheDaemonAndSetPublished)
{
    if (QStandardPaths::findExecutable("avahi-daemon").isEmpty()
        && !QFile::exists("/usr/sbin/avahi-daemon"))
        GTEST_SKIP() << "avahi-daemon is not installed";
    PrivateAvahi avahi;
    const QString busProblem = avahi.startBus();
    if (!busProblem.isEmpty())
        GTEST_SKIP() << "no private system bus here: " << busProblem.toStdString();

    VEKNetworkAcceptor acceptor;
    int publishedCount = 0;
    QList<VEKError> failures;
    QObject::connect(&acceptor, &VEKNetworkAcceptor::published, [&] { ++publishedCount; });
    QObject::connect(&acceptor, &VEKNetworkAcceptor::publishFailed,
                     [&](const VEKError &e) { failures.append(e); });
    const QString name = QStringLiteral("QuiveraTest-%1").arg(QCoreApplication::applicationPid());
    const QString type = "_quivera1._tcp";
    ASSERT_TRUE(acceptor.startup("local.", type + ".", name, 0, 5.0));
    const QString expected = name + ' ' + QString::number(acceptor.port());

    // 1. The bus is there, the daemon not yet: reported, and the port serves anyway.
    ASSERT_TRUE(waitUntil([&] { return !failures.isEmpty(); }));
    EXPECT_TRUE(failures.first().failureReason().contains("not running"))
        << failures.first().text().toStdString();
    EXPECT_TRUE(connects(acceptor.port()));

    // 2. The daemon appears: the service is announced without anyone asking again.
    const QString daemonProblem = avahi.startDaemon();
    if (!daemonProblem.isEmpty())
        GTEST_SKIP() << "avahi-daemon cannot run here: " << daemonProblem.toStdString();
    ASSERT_TRUE(waitUntil([&] { return publishedCount == 1; }, 15000));
    EXPECT_TRUE(acceptor.isAnnounced());
    EXPECT_EQ(acceptor.publishedName(), name);
    EXPECT_TRUE(waitUntil([&] { return avahi.browse(type).contains(expected); }, 10000))
        << avahi.browse(type).join(", ").toStdString();

    // 3. Withdrawn while a client is connected, and back after.
    acceptor.setPublished(false);
    EXPECT_FALSE(acceptor.isAnnounced());
    EXPECT_TRUE(waitUntil([&] { return avahi.browse(type).isEmpty(); }, 10000))
        << avahi.browse(type).join(", ").toStdString();
    EXPECT_TRUE(connects(acceptor.port())) << "withdrawing the name leaves the port alone";
    acceptor.setPublished(true);
    ASSERT_TRUE(waitUntil([&] { return publishedCount == 2; }, 15000));
    EXPECT_TRUE(waitUntil([&] { return avahi.browse(type).contains(expected); }, 10000));

    // 4. The daemon goes away and comes back: reported once, then announced again.
    failures.clear();
    avahi.stopDaemon();
    ASSERT_TRUE(waitUntil([&] { return !failures.isEmpty(); }));
    EXPECT_FALSE(acceptor.isAnnounced());
    EXPECT_TRUE(connects(acceptor.port()));
    ASSERT_TRUE(avahi.startDaemon().isEmpty());
    ASSERT_TRUE(waitUntil([&] { return publishedCount == 3; }, 15000));
    EXPECT_TRUE(waitUntil([&] { return avahi.browse(type).contains(expected); }, 10000));
    EXPECT_EQ(failures.size(), 1);

    // 5. Shutdown takes the announcement away with the port.
    acceptor.shutdown();
    EXPECT_TRUE(waitUntil([&] { return avahi.browse(type).isEmpty(); }, 10000));
}
