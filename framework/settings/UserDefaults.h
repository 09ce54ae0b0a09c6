#pragma once

#include "core/VEKError.h"

#include <QDateTime>
#include <QMutex>
#include <QObject>
#include <QReadWriteLock>
#include <QStringList>
#include <QVariant>

// The settings store: registered defaults under values persisted in an XML property list.
//
// Values take the types a property list carries; setValue() converts the others it accepts
// (int, uint, float, QStringList, QVariantHash) at once, and keeps dates to the whole second as
// the file does, so a value reads back the same before and after a restart.
//
// Reads may come from any thread. Every change is written to the file at once; before writing,
// changes another store made to the file meanwhile are taken in, so two processes sharing the
// file do not undo each other's settings.
class UserDefaults : public QObject {
    Q_OBJECT
public:
    // The process's store: VEKPaths::configDirectory() + "/Preferences.plist", created on first use.
    static UserDefaults &standard();
    // A store on any file (tests).
    explicit UserDefaults(const QString &path, QObject *parent = nullptr);

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

    // An invalid QVariant removes the key. Stores and writes the file at once (atomically);
    // emits valueChanged(key) when the effective value changed. A value a property list cannot
    // hold is refused and logged. A failed write is logged; the value stays in memory.
    void setValue(const QString &key, const QVariant &value);
    void removeValue(const QString &key);

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
    // Takes in what another store wrote since we last read or wrote the file, except `skipKey`.
    // Returns the keys whose effective value changed. Needs m_writeMutex.
    QStringList takeInOutsideChanges(const QString &skipKey);
    // Needs m_writeMutex.
    void writeFile(const QVariantMap &values);
    QVariant effectiveValue(const QString &key) const; // needs m_lock

    const QString m_path;

    mutable QReadWriteLock m_lock;
    QVariantMap m_defaults; // guarded by m_lock
    QVariantMap m_values;   // guarded by m_lock
    VEKError m_loadError;   // guarded by m_lock

    // Held across each change and its write, so the file always ends with the newest values.
    QMutex m_writeMutex;
    // The file as we last read or wrote it, to tell another store's writes from ours.
    // Compared byte for byte: times and inodes can repeat within a clock tick.
    bool m_diskExists = false;  // m_writeMutex
    QByteArray m_diskBytes;     // m_writeMutex
    QVariantMap m_onDisk;       // m_writeMutex
    bool m_writeFailing = false; // m_writeMutex
};
