// The "now playing" notice, received by a notification service of our own on a private
// session bus.

#include "MprisTestSupport.h"
#include "app/NowPlayingNotifier.h"
#include "support/Processes.h"

#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <gtest/gtest.h>

namespace {

// A notification service of our own. Answers Notify with IDs 41, 42, ... A virtual object
// needs no meta-object of its own, so the test builds without moc.
class FakeNotifications : public QDBusVirtualObject {
public:
    struct Call {
        QString app;
        quint32 replaces;
        QString summary;
        QString body;
    };
    QList<Call> calls;

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        const bool notify = message.member() == QLatin1String("Notify")
                            && (message.interface().isEmpty()
                                || message.interface() == QLatin1String("org.freedesktop.Notifications"));
        if (!notify) {
            connection.send(message.createErrorReply(QDBusError::UnknownMethod, message.member()));
            return true;
        }
        const QList<QVariant> a = message.arguments();
        calls.append({a.value(0).toString(), a.value(1).toUInt(), a.value(3).toString(), a.value(4).toString()});
        connection.send(message.createReply(QVariant::fromValue(quint32(40 + calls.size()))));
        return true;
    }
};

SongPtr song(const char *name, const char *artist, const char *album)
{
    auto s = std::make_shared<Song>();
    s->setName(QString::fromUtf8(name));
    s->setArtist(QString::fromUtf8(artist));
    s->setAlbum(QString::fromUtf8(album));
    return s;
}

} // namespace

TEST(NowPlayingNotifier, TheTextIsArtistOrAlbumAloneWhenTheOtherIsEmpty)
{
    const auto text = [](const char *artist, const char *album) {
        return NowPlayingNotifier::subtitleForSong(song("x", artist, album).get());
    };
    // Both, and no song: the notices on the bus below.
    EXPECT_EQ(text("Artist", ""), QStringLiteral("Artist"));
    EXPECT_EQ(text("", "Album"), QStringLiteral("Album"));
    EXPECT_TRUE(text("", "").isEmpty());
}

// A notice sent before any notification service runs is lost and costs nothing: the next one
// reaches the service once it is there, as a new notice.
TEST(NowPlayingNotifier, EachSongChangeReachesTheNotificationServiceOnceThereIsOne)
{
    PrivateSessionBus bus;
    const QString address = bus.address();
    ASSERT_FALSE(address.isEmpty()) << "dbus-daemon did not start";
    {
        NowPlayingNotifier notifier(QDBusConnection::connectToBus(address, QStringLiteral("notifier")));
        QList<quint32> delivered;
        QObject::connect(&notifier, &NowPlayingNotifier::delivered,
                         [&](quint32 id) { delivered.append(id); });
        notifier.currentSongChanged(song("Before", "Nobody", "Listens"));
        TestEnvironment::waitUntil([] { return false; }, 200);
        EXPECT_TRUE(delivered.isEmpty());

        QDBusConnection service = QDBusConnection::connectToBus(address, QStringLiteral("fake-notifications"));
        ASSERT_TRUE(service.isConnected());
        FakeNotifications fake;
        ASSERT_TRUE(service.registerVirtualObject(QStringLiteral("/org/freedesktop/Notifications"), &fake));
        ASSERT_TRUE(service.registerService(QStringLiteral("org.freedesktop.Notifications")));

        notifier.currentSongChanged(
            song("Tune & <Co>", "A & <B>", "Album")); // the body is markup, the title not
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return delivered.size() == 1; }));
        notifier.currentSongChanged(nullptr); // playback ended: a notice without texts
        ASSERT_TRUE(TestEnvironment::waitUntil([&] { return delivered.size() == 2; }));

        ASSERT_EQ(fake.calls.size(), 2);
        EXPECT_EQ(fake.calls.at(0).app, QStringLiteral("Quivera"));
        EXPECT_EQ(fake.calls.at(0).summary, QStringLiteral("Tune & <Co>"));
        EXPECT_EQ(fake.calls.at(0).body, QStringLiteral("A &amp; &lt;B&gt; \u2014 Album"));
        EXPECT_EQ(fake.calls.at(0).replaces, 0u);
        EXPECT_EQ(fake.calls.at(1).replaces, 41u); // replaces the notice before
        EXPECT_TRUE(fake.calls.at(1).summary.isEmpty());
        EXPECT_TRUE(fake.calls.at(1).body.isEmpty());
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("fake-notifications"));
    QDBusConnection::disconnectFromBus(QStringLiteral("notifier"));
}
