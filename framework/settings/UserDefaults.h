#pragma once

#include "core/VEKError.h"

#include <QDateTime>
#include <QMutex>
#include <QObject>
#include <QReadWriteLock>
#include <QStringList>
#include <QThreadPool>
#include <QSet>
#include <QVariant>

class QTimer;

// The settings store: registered defaults under values persisted in an XML property list.
//
// Values take the types a property list carries; setValue() converts the others it accepts
// (int, uint, float, QStringList, QVariantHash) at once, and keeps dates to the whole second as
// the file does, so a value reads back the same before and after a restart.
//
// Reads may come from any thread. A change is held in memory and notified at once; the file is
// written on a thread of its own at most every 250 ms (a dragged slider changes a setting dozens
// of times a second), and by synchronize() and when the store ends. Before writing, changes another store made to the file
// meanwhile are taken in, except for keys changed here since, so two processes sharing the file
// do not undo each other's settings. The file is replaced only by a complete, synced copy: a
// failed write (a full disk) leaves the previous file as it was.
class UserDefaults : public QObject {
    Q_OBJECT
public:
    // The process's store: VEKPaths::configDirectory() + "/Preferences.plist", created on first use.
    // It writes what is pending when the application's event loop quits and when the process
    // exits normally.
    static UserDefaults &standard();
    // A store on any file (tests).
    explicit UserDefaults(const QString &path, QObject *parent = nullptr);
    // Writes what is pending.
    ~UserDefaults() override;

    // The longest a change waits in memory before it is written, while the event loop runs.
    static constexpr int writeDelayMs = 250;

    QString path() const;

    // Merges; registered values are never written to the file. Emits valueChanged for the keys
    // whose effective value it changes.
    void registerDefaults(const QVariantMap &defaults);

    // The stored value, else the registered default, else invalid.
    QVariant value(const QString &key) const;
    // Absent reads as false / 0 / empty. Numbers and text convert into each other as far as
    // they can ("YES" and "true" are true; a number gives its text).
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;
    QString stringForKey(const QString &key) const;
    QVariantMap dictionaryForKey(const QString &key) const;
    QVariantList arrayForKey(const QString &key) const;
    QByteArray dataForKey(const QString &key) const;
    QDateTime dateForKey(const QString &key) const;

    // An invalid QVariant removes the key. Stores in memory and emits valueChanged(key) at once
    // when the effective value changed; the write follows within writeDelayMs. A value a property
    // list cannot hold is refused and logged. A failed write is logged once per run of failures;
    // the value stays in memory and is written with the next attempt.
    void setValue(const QString &key, const QVariant &value);
    void removeValue(const QString &key);

    // Writes pending changes now, taking in another store's changes first. True when the file
    // holds this store's values (or nothing was pending and the last write succeeded); false,
    // with the reason, when the write failed and the previous file was kept.
    bool synchronize(VEKError *error = nullptr);

    // Forgets every stored value and pending change and reads the file again; registered
    // defaults stay. Tells nobody. For tests, which start each case from empty folders in one
    // process. Call on the store's thread.
    void reload();

    // Stored and registered keys, sorted.
    QStringList allKeys() const;
    // Registered defaults overlaid with stored values.
    QVariantMap dictionaryRepresentation() const;

    // The problem met when the file was read (corrupt, unreadable), or an absent error. Reported
    // once: the first call returns it and clears it, so the launch can alert it a single time.
    VEKError takeLoadError();

signals:
    void valueChanged(const QString &key);

private:
    void load();
    void scheduleWrite();
    void writeInBackground();
    // Writes what is pending; returns false with the reason when the write failed. Thread-safe.
    bool writePending(QStringList *takenIn, QString *failure);
    // Takes in what another store wrote since we last read or wrote the file, except keys
    // changed here since. Returns the keys whose effective value changed. Needs m_writeMutex.
    QStringList takeInOutsideChanges();
    // Needs m_writeMutex. An empty `failure` on success.
    bool writeFile(const QVariantMap &values, QString *failure);
    QVariant effectiveValue(const QString &key) const; // needs m_lock

    const QString m_path;

    mutable QReadWriteLock m_lock;
    QVariantMap m_defaults; // guarded by m_lock
    QVariantMap m_values;   // guarded by m_lock
    VEKError m_loadError;   // guarded by m_lock
    QSet<QString> m_unsaved; // keys changed here and not yet written; guarded by m_lock

    QTimer *m_writeTimer = nullptr; // lives in the store's thread
    QThreadPool m_writer;           // one thread: the timed writes

    // Held across each change and its write, so the file always ends with the newest values.
    QMutex m_writeMutex;
    // The file as we last read or wrote it, to tell another store's writes from ours.
    // Compared byte for byte: times and inodes can repeat within a clock tick.
    bool m_diskExists = false;  // m_writeMutex
    QByteArray m_diskBytes;     // m_writeMutex
    QVariantMap m_onDisk;       // m_writeMutex
    bool m_writeFailing = false; // m_writeMutex
};
