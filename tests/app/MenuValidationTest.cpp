// The validation of the menu commands on a launched delegate with a real stream: what play is
// called, when next and previous could do anything (on the stream's playlist, across missing
// songs and the repeat modes), and the items that carry a state.

#include "app/ApplicationDelegate.h"
#include "audio/Stream.h"
#include "outputs/VEKAudioDevice.h"
#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using A = MenuItem::Action;
using TestEnvironment::waitUntil;

namespace {

class MenuValidation : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        for (const QString &key : {u"selectedPlaylistID"_s, u"mute"_s, u"dim"_s, u"volume"_s, u"playerSize"_s})
            UserDefaults::standard().removeValue(key);
        ApplicationDelegate::registerDefaults(UserDefaults::standard());
        delegate = std::make_unique<ApplicationDelegate>();
        ApplicationDelegate::LaunchOptions options;
        options.remote = false;
        options.mpris = false;
        options.outputDevice = VEKAudioDevice::deviceWithUID(u"null"_s);
        delegate->applicationWillFinishLaunching(options);
        ASSERT_TRUE(delegate->stream());
        static const QString dir = TestEnvironment::makeTempDir(u"menu-music"_s);
        QStringList files;
        for (int i = 0; i < 4; ++i)
            files.append(TestEnvironment::makeSine(dir + u"/%1.wav"_s.arg(i), 5.0, 44100, 2, {}, 300.0 + 100 * i));
        delegate->addFilesToLibrary(files);
        ASSERT_TRUE(waitUntil([&] { return delegate->library().size() == 4; }, 60000));
        library = delegate->localPlaylists().value(0);
        library->setSortKey(u"ordinal"_s);
    }

    void TearDown() override
    {
        delegate->applicationWillTerminate();
        delegate.reset();
    }

    // Validates an item of `action` (and `tag`): enabled, and the item as validation left it.
    std::pair<bool, MenuItem> validate(A action, qint64 tag = 0) const
    {
        MenuItem item;
        item.action = action;
        item.tag = tag;
        const bool enabled = delegate->validateMenuItem(item);
        return {enabled, item};
    }
    bool enabled(A action) const { return validate(action).first; }

    // The stream plays nothing yet but has `row` of the library current.
    void current(qsizetype row)
    {
        stream()->setPlaylist(library);
        stream()->setCurrentSong(library->objectInSongsAtIndex(row));
        ASSERT_EQ(stream()->currentSong(), library->objectInSongsAtIndex(row));
    }

    Stream *stream() const { return delegate->stream(); }

    std::unique_ptr<ApplicationDelegate> delegate;
    PlaylistPtr library;
};

} // namespace

TEST_F(MenuValidation, PlayIsCalledPlayPauseOrStopByWhatPlaysAndWhatIsSelected)
{
    auto [on, item] = validate(A::Play);
    EXPECT_TRUE(on);
    EXPECT_EQ(item.title, u"Play"_s);

    current(0);
    stream()->play();
    ASSERT_TRUE(stream()->isPlaying());
    std::tie(on, item) = validate(A::Play);
    EXPECT_TRUE(on);
    EXPECT_EQ(item.title, u"Pause"_s);

    // Another playlist in view: the same press stops what plays from the library.
    delegate->newPlaylistWithSongs({});
    ASSERT_NE(delegate->selectedPlaylist(), library);
    std::tie(on, item) = validate(A::Play);
    EXPECT_TRUE(on);
    EXPECT_EQ(item.title, u"Stop"_s);

    // Stopped, with an empty playlist in view: nothing to play.
    stream()->pause();
    std::tie(on, item) = validate(A::Play);
    EXPECT_FALSE(on);
    EXPECT_EQ(item.title, u"Play"_s);
}

TEST_F(MenuValidation, NextAndPreviousAskTheStreamsPlaylistAcrossMissingSongsAndRepeatModes)
{
    EXPECT_FALSE(enabled(A::Next)) << "no playlist on the stream";
    EXPECT_FALSE(enabled(A::Previous));

    current(0);
    EXPECT_TRUE(enabled(A::Previous)) << "the first song can go back to its start";
    EXPECT_TRUE(enabled(A::Next));

    current(3);
    struct Case {
        quint64 repeat;
        qsizetype missingRows; // rows 0 to this one less are missing
        bool next;
    };
    const Case cases[] = {
        {0, 0, false}, // last song, no repeat
        {1, 0, true},  // the list starts again
        {1, 3, true},  // ... with the one song that plays
        {1, 4, false}, // ... unless every song is missing
        {2, 4, true},  // the song itself repeats
        {2, 0, true},
    };
    for (const Case &c : cases) {
        library->setRepeatMode(c.repeat);
        for (qsizetype row = 0; row < 4; ++row)
            library->objectInSongsAtIndex(row)->setIsMissing(row < c.missingRows);
        EXPECT_EQ(enabled(A::Next), c.next) << "repeat " << c.repeat << ", missing " << c.missingRows;
        EXPECT_TRUE(enabled(A::Previous));
    }

    // Songs after the current one all missing, repeat off: next has nowhere to go.
    library->setRepeatMode(0);
    for (qsizetype row = 0; row < 4; ++row)
        library->objectInSongsAtIndex(row)->setIsMissing(row >= 2);
    current(1);
    EXPECT_FALSE(enabled(A::Next));

    // The repeat of the playlist in view does not count while another one plays.
    delegate->newPlaylistWithSongs({});
    delegate->setRepeatMode(1);
    EXPECT_FALSE(enabled(A::Next));
}

TEST_F(MenuValidation, ItemsWithAStateFollowTheSettingsAndTheSelectedPlaylist)
{
    delegate->setRepeatMode(2);
    EXPECT_FALSE(validate(A::RepeatChanged, 1).second.state);
    EXPECT_TRUE(validate(A::RepeatChanged, 2).second.state);
    delegate->toggleShuffle();
    EXPECT_TRUE(validate(A::ToggleShuffle).second.state);
    delegate->toggleMute();
    EXPECT_TRUE(validate(A::ToggleMute).second.state);
    EXPECT_FALSE(validate(A::ToggleDim).second.state);
    UserDefaults::standard().setValue(u"playerSize"_s, 1);
    EXPECT_TRUE(validate(A::ViewSizeChanged, 1).second.state);
    EXPECT_FALSE(validate(A::ViewSizeChanged, 2).second.state);

    // No effect in any slot: nothing to switch, and the item offers to enable.
    const auto [effects, item] = validate(A::ToggleEffectsEnabled);
    EXPECT_FALSE(effects);
    EXPECT_EQ(item.title, u"Enable Effects"_s);

    UserDefaults::standard().setValue(u"volume"_s, 1.0);
    EXPECT_FALSE(enabled(A::VolumeUp));
    delegate->changeVolume(-0.05);
    EXPECT_DOUBLE_EQ(UserDefaults::standard().doubleForKey(u"volume"_s), 0.95);
    EXPECT_TRUE(enabled(A::VolumeUp));
}
