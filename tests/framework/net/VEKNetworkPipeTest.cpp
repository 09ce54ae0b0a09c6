#include "NetTestSupport.h"
#include "net/VEKKeyedArchive.h"
#include "net/VEKNetworkAcceptor.h"
#include "net/VEKNetworkPipe.h"

#include <QDateTime>
#include <QPointer>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using NetTestSupport::runTool;
using NetTestSupport::waitUntil;

namespace {

// What one accepted connection went through.
struct Connection {
    QList<QVariantMap> received;
    QStringList protocolErrors;
    bool closed = false;
    QPointer<VEKNetworkPipe> pipe;
};

// Our side of the loopback tests: an acceptor on a free port that answers every message with
// {"n": its "n", "reply": true}. Not announced: these tests need no daemon.
class EchoServer {
public:
    EchoServer()
    {
        acceptor.setPublished(false);
        QObject::connect(&acceptor, &VEKNetworkAcceptor::didAcceptConnection, &owner,
                         [this](VEKNetworkPipe *pipe) { adopt(pipe); });
        VEKError error;
        EXPECT_TRUE(acceptor.startup("local.", "_quivera1._tcp.", "test", 0, 10.0, &error))
            << error.text().toStdString();
    }

    QString port() const { return QString::number(acceptor.port()); }
    std::shared_ptr<Connection> last() const { return connections.empty() ? nullptr : connections.back(); }

    VEKNetworkAcceptor acceptor;
    QObject owner;
    std::vector<std::shared_ptr<Connection>> connections;
    bool echo = true;
    int stallMs = 0;       // a shorter stall limit for each pipe
    int replyPadding = 0;  // bytes added to each reply

private:
    void adopt(VEKNetworkPipe *pipe)
    {
        pipe->setParent(&owner);
        if (stallMs > 0)
            pipe->setStallTimeout(stallMs);
        auto c = std::make_shared<Connection>();
        c->pipe = pipe;
        connections.push_back(c);
        QObject::connect(pipe, &VEKNetworkPipe::received, pipe, [this, c, pipe](const QVariant &m) {
            c->received.append(m.toMap());
            if (echo)
                pipe->send(QVariantMap{{"n", m.toMap().value("n")}, {"reply", true},
                                       {"pad", QByteArray(replyPadding, 'p')}});
        });
        QObject::connect(pipe, &VEKNetworkPipe::protocolError, pipe,
                         [c](const QString &reason) { c->protocolErrors.append(reason); });
        QObject::connect(pipe, &VEKNetworkPipe::closed, pipe, [c, pipe] {
            c->closed = true;
            pipe->deleteLater();
        });
    }
};

// A client pipe of our own, for the tests that need both ends in this process.
VEKNetworkPipe *connectPipe(quint16 port, QObject *parent)
{
    auto *socket = new QTcpSocket;
    socket->connectToHost(QHostAddress::LocalHost, port);
    EXPECT_TRUE(waitUntil([&] { return socket->state() == QAbstractSocket::ConnectedState; }));
    return new VEKNetworkPipe(socket, parent);
}

QByteArray frame(const QVariantMap &message)
{
    return NetTestSupport::frame(VEKKeyedArchive::archivedData(message));
}

} // namespace

TEST(NetworkPipeLimits, IdleAndTricklingPeersAreDroppedAndWellBehavedOnesStay)
{
    EchoServer server;
    server.stallMs = 300;
    const auto dropped = [&](const char *reasonPart) {
        const auto c = server.last();
        EXPECT_TRUE(c && waitUntil([&] { return c->closed; }, 5000));
        EXPECT_TRUE(c && c->protocolErrors.size() == 1 && c->protocolErrors.first().contains(QLatin1String(reasonPart)))
            << (c && !c->protocolErrors.isEmpty() ? c->protocolErrors.first().toStdString() : std::string());
    };

    QTcpSocket idle;
    idle.connectToHost(QHostAddress::LocalHost, server.acceptor.port());
    ASSERT_TRUE(waitUntil([&] { return server.connections.size() == 1; }));
    dropped("no message");

    // A byte at a time, each in time, the frame as a whole too late.
    QTcpSocket trickle;
    trickle.connectToHost(QHostAddress::LocalHost, server.acceptor.port());
    ASSERT_TRUE(waitUntil([&] { return server.connections.size() == 2; }));
    const QByteArray bytes = frame({{"n", 1}});
    for (int i = 0; i < 12 && !server.last()->closed; ++i) {
        trickle.write(bytes.mid(i, 1));
        trickle.flush();
        waitUntil([] { return false; }, 100);
    }
    dropped("stalled");

    // A client that has spoken may be quiet for as long as it likes.
    QObject parent;
    VEKNetworkPipe *client = connectPipe(server.acceptor.port(), &parent);
    ASSERT_TRUE(client->send(QVariantMap{{"n", 7}}));
    ASSERT_TRUE(waitUntil([&] { return server.connections.size() == 3 && server.last()->received.size() == 1; }));
    waitUntil([] { return false; }, 1000);
    EXPECT_FALSE(server.last()->closed);
    EXPECT_TRUE(client->isOpen());
}

TEST(NetworkPipeLimits, APeerThatNeverReadsIsReadNoFurtherAndDropped)
{
    EchoServer server;
    server.stallMs = 1000;
    server.replyPadding = 1024 * 1024;
    QTcpSocket deaf;
    deaf.setReadBufferSize(1);
    deaf.connectToHost(QHostAddress::LocalHost, server.acceptor.port());
    ASSERT_TRUE(waitUntil([&] { return deaf.state() == QAbstractSocket::ConnectedState; }));
    QByteArray requests;
    for (int i = 0; i < 300; ++i)
        requests += frame({{"n", i}});
    deaf.write(requests);
    ASSERT_TRUE(waitUntil([&] { return !server.connections.empty(); }));
    const auto c = server.last();
    ASSERT_TRUE(waitUntil([&] { return c->closed; }, 10000)) << c->received.size() << " requests answered";
    // Each reply waits for the one before to leave: what the system's buffers hold, no more.
    EXPECT_LT(c->received.size(), 60);
    ASSERT_EQ(c->protocolErrors.size(), 1);
    EXPECT_TRUE(c->protocolErrors.first().contains("does not read")) << c->protocolErrors.first().toStdString();
}

TEST(NetworkPipeLoopback, HostilePeersLoseTheirConnectionAndTheNextHasItsCutFramesReassembled)
{
    EchoServer server;
    struct Case {
        QStringList args;
        const char *reasonPart; // null: the peer just leaves, no protocol error
    };
    const Case cases[] = {
        {{"giant", "4294967295"}, "4294967295 bytes announced"},
        {{"truncated"}, nullptr},
        {{"garbage"}, "binary property list"},
        {{"notdict"}, "not a dictionary"},
    };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.args.join(' ').toStdString());
        const size_t before = server.connections.size();
        QByteArray out;
        ASSERT_EQ(runTool(QStringList{"client", server.port()} + test.args, &out), 0)
            << out.constData();
        ASSERT_EQ(server.connections.size(), before + 1);
        const auto c = server.last();
        ASSERT_TRUE(waitUntil([&] { return c->closed; }));
        EXPECT_TRUE(c->received.isEmpty());
        if (test.reasonPart) {
            ASSERT_EQ(c->protocolErrors.size(), 1);
            EXPECT_TRUE(c->protocolErrors.first().contains(QLatin1String(test.reasonPart)))
                << c->protocolErrors.first().toStdString();
        } else {
            EXPECT_TRUE(c->protocolErrors.isEmpty());
        }
        EXPECT_TRUE(server.acceptor.isListening());
    }
    // And the next, well-behaved client is served as if nothing had happened: every frame it
    // sent, cut at any byte, arrived once, whole, in order.
    QByteArray out;
    ASSERT_EQ(runTool({"client", server.port(), "echo"}, &out), 0) << out.constData();
    const auto c = server.last();
    const int sent = out.trimmed().split(' ').last().toInt();
    ASSERT_GT(sent, 100) << out.constData();
    ASSERT_EQ(c->received.size(), sent);
    for (int i = 0; i < sent; ++i) {
        EXPECT_EQ(c->received.at(i).value("n").toLongLong(), i);
        EXPECT_EQ(c->received.at(i).value("command"), QVariant("echo"));
    }
    EXPECT_TRUE(c->protocolErrors.isEmpty());
    EXPECT_TRUE(waitUntil([&] { return c->closed; })) << "the client's leaving is noticed";
}

TEST(NetworkPipeLoopback, SendsFromOtherThreadsKeepTheirOrder)
{
    EchoServer server;
    server.echo = false;
    QObject clientSide;
    VEKNetworkPipe *client = connectPipe(server.acceptor.port(), &clientSide);
    ASSERT_TRUE(waitUntil([&] { return server.last() && server.last()->pipe; }));
    VEKNetworkPipe *serverPipe = server.last()->pipe;

    QList<QVariantMap> got;
    QObject::connect(client, &VEKNetworkPipe::received, &clientSide,
                     [&](const QVariant &m) { got.append(m.toMap()); });

    constexpr int threads = 3, perThread = 1500;
    std::vector<std::thread> senders;
    std::atomic<int> refused{0};
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&, t] {
            for (int n = 0; n < perThread; ++n) {
                if (!serverPipe->send(QVariantMap{{"t", t}, {"n", n}, {"pad", QString(n % 50, 'p')}}))
                    ++refused;
            }
        });
    }
    // The pipe's thread must keep its loop running while the others send.
    const bool all = waitUntil([&] { return got.size() == threads * perThread; }, 60000);
    for (auto &s : senders)
        s.join();
    EXPECT_EQ(refused.load(), 0);
    ASSERT_TRUE(all) << got.size();
    std::vector<int> next(threads, 0);
    for (const QVariantMap &m : got) {
        const int t = m.value("t").toInt();
        ASSERT_EQ(m.value("n").toInt(), next[size_t(t)]) << "thread " << t;
        ++next[size_t(t)];
    }
}

TEST(NetworkPipe, CloseLetsWhatWasSentLeaveFirst)
{
    EchoServer server;
    server.echo = false;
    QObject clientSide;
    VEKNetworkPipe *client = connectPipe(server.acceptor.port(), &clientSide);
    QList<QVariantMap> got;
    bool clientClosed = false;
    QObject::connect(client, &VEKNetworkPipe::received, [&](const QVariant &m) { got.append(m.toMap()); });
    QObject::connect(client, &VEKNetworkPipe::closed, [&] { clientClosed = true; });
    ASSERT_TRUE(waitUntil([&] { return server.last() && server.last()->pipe; }));
    VEKNetworkPipe *pipe = server.last()->pipe;
    for (int n = 0; n < 50; ++n)
        ASSERT_TRUE(pipe->send(QVariantMap{{"n", n}, {"text", QString(n * 1000, 'x')}}));
    pipe->close();
    EXPECT_FALSE(pipe->isOpen());
    EXPECT_FALSE(pipe->send(QVariantMap{{"n", 99}}));
    ASSERT_TRUE(waitUntil([&] { return clientClosed; }));
    ASSERT_EQ(got.size(), 50);
    for (int n = 0; n < 50; ++n)
        EXPECT_EQ(got.at(n).value("n").toInt(), n);
    EXPECT_FALSE(server.last()->closed) << "closed() is for endings we did not ask for";
}

TEST(NetworkPipe, MessagesUpToTheLimitCrossWholeAndNothingElseIsSent)
{
    EchoServer server;
    server.echo = false;
    QObject clientSide;
    VEKNetworkPipe *client = connectPipe(server.acceptor.port(), &clientSide);
    EXPECT_FALSE(client->send(QVariantList{1, 2})) << "messages are dictionaries";
    EXPECT_FALSE(client->send(QVariantMap{{"when", QDateTime::currentDateTimeUtc()}}));
    // Over the limit it is refused here rather than dropped by the peer.
    EXPECT_FALSE(client->send(QVariantMap{{"big", QString(VEKNetworkPipe::maxMessageSize, 'x')}}));
    // Close to it: 15 MiB of text in one frame, arriving over many reads.
    const QString big(15 * 1024 * 1024, QLatin1Char('q'));
    ASSERT_TRUE(client->send(QVariantMap{{"big", big}}));
    ASSERT_TRUE(waitUntil([&] { return server.last() && server.last()->received.size() == 1; },
                          30000));
    EXPECT_EQ(server.last()->received.first().value("big").toString(), big);
    EXPECT_TRUE(server.last()->protocolErrors.isEmpty());
}

TEST(NetworkPipe, ThePeerLeavingIsReportedOnce)
{
    EchoServer server;
    auto *holder = new QObject;
    VEKNetworkPipe *client = connectPipe(server.acceptor.port(), holder);
    int closedCount = 0;
    ASSERT_TRUE(waitUntil([&] { return server.last() && server.last()->pipe; }));
    QObject::connect(server.last()->pipe, &VEKNetworkPipe::closed, [&] { ++closedCount; });
    ASSERT_TRUE(client->send(QVariantMap{{"n", 0}}));
    ASSERT_TRUE(waitUntil([&] { return server.last()->received.size() == 1; }));
    delete holder; // destroying a pipe drops its connection without a word
    ASSERT_TRUE(waitUntil([&] { return server.last()->closed; }));
    waitUntil([] { return false; }, 200);
    EXPECT_EQ(closedCount, 1);
    EXPECT_TRUE(server.last()->protocolErrors.isEmpty());
}
