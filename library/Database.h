#pragma once

#include "Song.h"
#include "db/VEKDatabase.h"
#include "ops/SerialTaskQueue.h"

#include <QStringList>
#include <functional>
#include <memory>

class VEKDatabaseQuery;

// The main thread's connection to the library file, the statements the program sends to it,
// and the one ordered writer for the writes that run off the main thread (a playlist's
// contents): those go through writeAsync(), on a connection of the writer's own, one after
// another in the order they were made.
class Database : public VEKDatabase {
public:
    Database();
    // Finishes every queued write before the connection closes.
    ~Database() override;

    // While true, playlists write nothing: the load uses the model's own setters.
    bool isLoading() const { return m_isLoading; }
    void setIsLoading(bool loading) { m_isLoading = loading; }

    // The library's main connection, reached by the model (a playlist's settings, its name).
    // Null when no library file is open.
    static Database *shared();
    static void setShared(Database *database);

    // Queues a write on the writer's connection. A failing task is logged, not shown.
    void writeAsync(std::function<bool(VEKDatabase &, VEKError *)> task);
    // Waits until every queued write has reached the file. The main thread calls this before a
    // statement of its own on rows the writer may still be changing.
    void flushWrites();

    // The schema of a new library file, in order.
    static const QStringList &buildStatements();

    static const QString selectSongsStatement;
    static const QString insertSongStatement;
    static const QString updateSongStatement;
    static const QString deleteSongStatement;

    // Binds the 18 values of insertSongStatement, in column order.
    static bool bindSongForInsert(VEKDatabaseQuery &query, const Song &song,
                                  VEKError *error = nullptr);
    // Reads a row of selectSongsStatement into a new song; null for a row with no path.
    static SongPtr songFromRow(const VEKDatabaseQuery &query);

private:
    bool m_isLoading = false;
    std::unique_ptr<VEKDatabase> m_writerConnection; // used on the writer thread only
    std::unique_ptr<SerialTaskQueue> m_writer;       // declared last: joined first
};
