#pragma once

#include "app/FrontEnd.h"

#include <QStringList>

// A front end that writes down each call, in order, for the delegate's tests: "refreshSongs",
// "beginEditingPlaylist <playlistID>", "beginProgress <progress>" and so on. It answers the
// iTunes question with `iTunesAnswer`.
class RecordingFrontEnd : public FrontEnd {
public:
    void refreshSongs() override { calls << QStringLiteral("refreshSongs"); }
    void refreshPlaylists() override { calls << QStringLiteral("refreshPlaylists"); }
    void updateControls() override { calls << QStringLiteral("updateControls"); }
    void revealCurrentSong() override { calls << QStringLiteral("revealCurrentSong"); }
    void open() override { calls << QStringLiteral("open"); }
    void beginEditingPlaylist(const PlaylistPtr &p) override
    {
        calls << QStringLiteral("beginEditingPlaylist %1").arg(p ? p->playlistID() : 0);
    }
    std::optional<bool> askAccessITunesLibrary() override
    {
        calls << QStringLiteral("askAccessITunesLibrary");
        return iTunesAnswer;
    }
    void beginProgress(const QString &, double progress) override
    {
        calls << QStringLiteral("beginProgress %1").arg(progress);
    }
    void setProgress(double progress) override { calls << QStringLiteral("setProgress %1").arg(progress); }
    void endProgress() override { calls << QStringLiteral("endProgress"); }

    // The calls since the last take, and forgets them.
    QStringList take() { return std::exchange(calls, {}); }

    QStringList calls;
    std::optional<bool> iTunesAnswer;
};
