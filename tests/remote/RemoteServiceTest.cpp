#include "FakeRemoteHost.h"
#include "net/VEKNetworkPipe.h"
#include "remote/Remote.h"
#include "settings/UserDefaults.h"
#include "support/Loopback.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <memory>

using TestEnvironment::connects;
using TestEnvironment::waitUntil;

namespace {

// A client of our own make, to watch the pushes as they come.
class TestClient {
public:
    explicit TestClient(quint16 port)
    {
        auto *socket = new QTcpSocket;
        socket->connectToHost(QHostAddress::LocalHost, port);
        pipe = std::make_unique<VEKNetworkPipe>(socket);
        QObject::connect(pipe.get(), &VEKNetworkPipe::received,
                         [this](const QVariant &m) { messages.append(m.toMap()); });
        QObject::connect(pipe.get(), &VEKNetworkPipe::closed, [this] { closed = true; });
    }
    bool waitFor(qsizetype count) { return waitUntil([&] { return messages.size() >= count; }); }
    // Nothing more arrives for a while.
    bool quietFor(int ms)
    {
        const qsizetype before = messages.size();
        waitUntil([] { return false; }, ms);
        return messages.size() == before;
    }

    std::unique_ptr<VEKNetworkPipe> pipe;
    QList<QVariantMap> messages;
    bool closed = false;
};

class RemoteService : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::systemBusSocket(); // before the acceptor looks for a bus
        defaults = std::make_unique<UserDefaults>(TestEnvironment::makeTempDir() + "/Preferences.plist");
        remote = std::make_unique<Remote>(Remote::Configuration{
            .host = &host, .defaults = defaults.get(), .port = 0, .name = serviceName()});
        ASSERT_TRUE(remote->startNetworkService());
        port = remote->port();
        ASSERT_NE(port, 0);
    }

    static QString serviceName()
    {
        return QStringLiteral("QuiveraRemoteTest-%1").arg(QCoreApplication::applicationPid());
    }

    FakeRemoteHost host;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<Remote> remote;
    quint16 port = 0;
};

bool isPush(const QVariantMap &m)
{
    return m.contains("hostname") && !m.contains("target") && !m.contains("action");
}

} // namespace

TEST_F(RemoteService, TheFirstMessageIsAStatusAndEveryObservedChangeIsPushed)
{
    TestClient client(port);
    ASSERT_TRUE(client.waitFor(1));
    EXPECT_TRUE(isPush(client.messages.at(0)));
    EXPECT_EQ(client.messages.at(0).value("hostname"), QVariant(serviceName()));
    EXPECT_TRUE(waitUntil([&] { return remote->connected(); }));

    // Song and playing state change in the same moment: two pushes, not merged.
    host.add(FakeRemoteHost::song(4, "Four", "Band", "Album"));
    host.setCurrentSong(host.songs.value(4));
    host.play();
    ASSERT_TRUE(client.waitFor(3));
    EXPECT_EQ(client.messages.at(1).value("name"), QVariant("Four"));
    EXPECT_EQ(client.messages.at(2).value("isPlaying"), QVariant(true));

    defaults->setValue("dim", true);
    ASSERT_TRUE(client.waitFor(4));
    EXPECT_EQ(client.messages.at(3).value("dim"), QVariant(true));
    defaults->setValue("mute", true);
    ASSERT_TRUE(client.waitFor(5));
    EXPECT_EQ(client.messages.at(4).value("mute"), QVariant(true));

    defaults->setValue("volume", 0.5);
    defaults->setValue("shuffle", true);
    EXPECT_TRUE(client.quietFor(300)) << "other settings are no part of the status";

    // Requests are answered in order; previous pushes by itself.
    client.pipe->send(QVariantMap{{"command", "getSongsLastModification"}, {"target", 1}});
    client.pipe->send(QVariantMap{{"command", "previous"}});
    client.pipe->send(QVariantMap{{"command", "getCurrentStatus"}, {"action", "x"}});
    ASSERT_TRUE(client.waitFor(8));
    EXPECT_EQ(client.messages.at(5).value("target"), QVariant(1));
    EXPECT_TRUE(isPush(client.messages.at(6)));
    EXPECT_EQ(client.messages.at(7).value("action"), QVariant("x"));
    EXPECT_TRUE(client.quietFor(200));
}

TEST_F(RemoteService, OneClientAtATimeAndTheNextIsServedAfterTheFirstLeaves)
{
    auto first = std::make_unique<TestClient>(port);
    ASSERT_TRUE(first->waitFor(1));
    ASSERT_TRUE(waitUntil([&] { return remote->connected(); }));
    EXPECT_FALSE(remote->isPublishing());
    EXPECT_FALSE(connects(port)) << "the port is closed while a client is connected";
    EXPECT_TRUE(first->pipe->isOpen()) << "the present client is never displaced";

    first.reset();
    ASSERT_TRUE(waitUntil([&] { return !remote->connected(); }));
    EXPECT_TRUE(remote->isPublishing());
    EXPECT_EQ(remote->port(), port) << "a free port once chosen is kept";
    TestClient second(port);
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_TRUE(isPush(second.messages.at(0)));
}

// What a broken frame costs is the pipe's to bound; here only that the service lets that client go,
// publishes again and serves the next one.
TEST_F(RemoteService, ABrokenFrameCostsOnlyThatConnection)
{
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(waitUntil([&] { return raw.bytesAvailable() > 0; })) << "its status first";
    raw.write(QByteArray::fromHex("7fffffff") + "x");
    EXPECT_TRUE(waitUntil([&] { return raw.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_TRUE(waitUntil([&] { return !remote->connected() && remote->isPublishing(); }));
    TestClient next(port);
    ASSERT_TRUE(next.waitFor(1));
    EXPECT_TRUE(isPush(next.messages.at(0)));
    EXPECT_TRUE(host.calls.isEmpty());
}

TEST(RemoteLifecycle, StopDropsTheClientAndLeavesNoServiceAndStartServesAgain)
{
    TestEnvironment::systemBusSocket();
    FakeRemoteHost host;
    UserDefaults defaults(TestEnvironment::makeTempDir() + "/Preferences.plist");
    Remote *remote = Remote::start({.host = &host, .defaults = &defaults, .port = 0, .name = "Life"});
    ASSERT_EQ(remote, Remote::sharedInstance());
    const quint16 port = remote->port();
    ASSERT_NE(port, 0);

    TestClient client(port);
    ASSERT_TRUE(client.waitFor(1));
    ASSERT_TRUE(waitUntil([&] { return remote->connected(); }));
    Remote::stop();
    EXPECT_TRUE(waitUntil([&] { return client.closed; })) << "the client is dropped";
    EXPECT_FALSE(connects(port));
    EXPECT_FALSE(remote->isPublishing());

    // Changes after stop reach nobody and touch nothing.
    host.play();

    FakeRemoteHost other;
    other.current = FakeRemoteHost::song(8, "Eight", nullptr, nullptr);
    Remote::start({.host = &other, .defaults = &defaults, .port = 0, .name = "Life"});
    EXPECT_EQ(Remote::sharedInstance(), remote) << "one instance for the process";
    TestClient again(remote->port());
    ASSERT_TRUE(again.waitFor(1));
    EXPECT_EQ(again.messages.at(0).value("name"), QVariant("Eight")) << "attached to the new host";
    Remote::stop();
    Remote::stop(); // harmless twice
}

TEST_F(RemoteService, APortInUseIsAlertedAndTheProgramGoesOn)
{
    FakeRemoteHost other;
    Remote second({.host = &other, .defaults = defaults.get(), .port = port, .name = "Second"});
    EXPECT_FALSE(second.startNetworkService());
    EXPECT_EQ(second.port(), 0);
    TestClient client(port);
    ASSERT_TRUE(client.waitFor(1)) << "the first service is untouched";
    EXPECT_EQ(client.messages.at(0).value("hostname"), QVariant(serviceName()));
}
