#pragma once

#include "app/ApplicationDelegate.h"
#include "CliArguments.h"
#include "core/VEKError.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QTextStream>
#include <memory>

// One run of a CLI command inside a full launch: defaults, library file, queue. Alerts go to
// standard error and are counted, so a command that met one ends with a failing status.
class CliSession : public VEKAlertPresenter {
public:
    CliSession();
    ~CliSession() override;

    // The launch, as the player does it, and then the wait for what it queued (the iTunes
    // read-in), so the library is complete. Returns false if the library file could not be opened:
    // no command can work without it (the alert has said why).
    bool launch();
    // The same with playback, the remote service or MPRIS as `options` ask (play, render, serve).
    bool launch(const ApplicationDelegate::LaunchOptions &options);
    // The settings with every registered default, and a warning when the file was damaged; part
    // of launch(). Reads no library, so a command that only reads or writes settings works
    // whatever the library or the iTunes file is like.
    void loadSettings();
    // Library commands need no engine, network service or bus name.
    static ApplicationDelegate::LaunchOptions libraryOnly();
    // Drains the queue and shuts down in order; puts the selection back as it was, so the CLI
    // never changes what the player shows next.
    void shutdown();

    ApplicationDelegate &delegate() { return *m_delegate; }

    QTextStream &out() { return m_out; }
    QTextStream &err() { return m_err; }
    // A message on standard error, prefixed with the program name; marks the run failed.
    void fail(const QString &message);
    bool failed() const { return m_failed; }
    // 0, or 1 after an alert or fail().
    int status() const { return m_failed ? 1 : 0; }

    // Looks a song or playlist up, or fails with a clear message.
    SongPtr songForID(const QString &text);
    PlaylistPtr playlistForID(const QString &text);

    // JSON for a song and a playlist, with the field names of the model; absent values are left
    // out.
    static QJsonObject songJson(const Song &song);
    static QJsonObject playlistJson(const Playlist &playlist);
    static QString playlistKindName(const Playlist &playlist);

    void present(const VEKError &error) override;

private:
    std::unique_ptr<ApplicationDelegate> m_delegate;
    PlaylistPtr m_selectionAtLaunch;
    QTextStream m_out;
    QTextStream m_err;
    bool m_failed = false;
};
