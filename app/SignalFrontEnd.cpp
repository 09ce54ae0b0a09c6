#include "SignalFrontEnd.h"

SignalFrontEnd::SignalFrontEnd(QObject *parent) : QObject(parent) {}

SignalFrontEnd::~SignalFrontEnd() = default;

void SignalFrontEnd::setAskAccessITunesLibraryHandler(AccessITunesLibraryHandler handler)
{
    m_askAccessITunesLibrary = std::move(handler);
}

void SignalFrontEnd::refreshSongs() { emit refreshSongsRequested(); }

void SignalFrontEnd::refreshPlaylists() { emit refreshPlaylistsRequested(); }

void SignalFrontEnd::updateControls() { emit updateControlsRequested(); }

void SignalFrontEnd::revealCurrentSong() { emit revealCurrentSongRequested(); }

void SignalFrontEnd::open() { emit openRequested(); }

void SignalFrontEnd::beginEditingPlaylist(const PlaylistPtr &playlist)
{
    emit beginEditingPlaylistRequested(playlist);
}

std::optional<bool> SignalFrontEnd::askAccessITunesLibrary()
{
    return m_askAccessITunesLibrary ? m_askAccessITunesLibrary() : std::nullopt;
}

void SignalFrontEnd::releaseWindows() { emit releaseWindowsRequested(); }

void SignalFrontEnd::beginProgress(const QString &title, double progress)
{
    emit beginProgressRequested(title, progress);
}

void SignalFrontEnd::setProgress(double progress) { emit setProgressRequested(progress); }

void SignalFrontEnd::endProgress() { emit endProgressRequested(); }
