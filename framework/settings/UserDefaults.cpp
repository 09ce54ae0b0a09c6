#include "UserDefaults.h"

#include "core/VEKVariant.h"

#include "VEKPropertyList.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "core/VEKPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QReadLocker>
#include <QThread>
#include <QTimer>
#include <QWriteLocker>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString errorDomain = QStringLiteral("UserDefaults");
enum LoadErrorCode : qint64 { FileDamaged = 1, FileUnreadable = 2 };

QString withoutNul(const QString &s)
{
    // libplist takes C strings: whatever follows a NUL would vanish on disk.
    const qsizetype nul = s.indexOf(QChar(0));
    return nul < 0 ? s : s.left(nul);
}

// The value as it will read back from the file, or an invalid QVariant when a property list
// cannot hold it.
QVariant normalized(const QVariant &value, int depth)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Double:
    case QMetaType::QByteArray:
        return value;
    case QMetaType::QString:
        return withoutNul(value.toString());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
        return qlonglong(value.toLongLong());
    case QMetaType::ULongLong: {
        const qulonglong u = value.toULongLong();
        return u <= qulonglong(LLONG_MAX) ? QVariant(qlonglong(u)) : QVariant(u);
    }
    case QMetaType::Float:
        return value.toDouble();
    case QMetaType::QDateTime: {
        const QDateTime date = value.toDateTime();
        if (!date.isValid())
            return {};
        // The XML file keeps whole seconds.
        qint64 ms = date.toMSecsSinceEpoch();
        ms -= ((ms % 1000) + 1000) % 1000;
        const QDateTime whole = QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
        if (whole.date().year() < 1 || whole.date().year() > 9999)
            return {};
        return whole;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        if (depth >= VEKPropertyList::maxDepth)
            return {};
        QVariantList out;
        const QVariantList items = value.toList();
        out.reserve(items.size());
        for (const QVariant &item : items) {
            QVariant n = normalized(item, depth + 1);
            if (!n.isValid())
                return {};
            out.append(std::move(n));
        }
        return out;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        if (depth >= VEKPropertyList::maxDepth)
            return {};
        QVariantMap out;
        auto add = [&](const QString &key, const QVariant &item) {
            QVariant n = normalized(item, depth + 1);
            if (!n.isValid())
                return false;
            out.insert(withoutNul(key), std::move(n));
            return true;
        };
        if (value.typeId() == QMetaType::QVariantMap) {
            const QVariantMap map = value.toMap();
            for (auto it = map.cbegin(); it != map.cend(); ++it)
                if (!add(it.key(), it.value()))
                    return {};
        } else {
            const QVariantHash hash = value.toHash();
            for (auto it = hash.cbegin(); it != hash.cend(); ++it)
                if (!add(it.key(), it.value()))
                    return {};
        }
        return out;
    }
    default:
        if (value.metaType() == QMetaType::fromType<VEKPlistUID>())
            return value;
        return {};
    }
}

// Equal values of equal types: QVariant's own == calls 1 and 1.0 and true equal, but a
// setting that changes type has changed.
bool sameValue(const QVariant &a, const QVariant &b)
{
    if (a.metaType() != b.metaType())
        return false;
    switch (a.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap();
        const QVariantMap y = b.toMap();
        if (x.size() != y.size())
            return false;
        for (auto i = x.cbegin(), j = y.cbegin(); i != x.cend(); ++i, ++j)
            if (i.key() != j.key() || !sameValue(i.value(), j.value()))
                return false;
        return true;
    }
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList();
        const QVariantList y = b.toList();
        if (x.size() != y.size())
            return false;
        for (qsizetype i = 0; i < x.size(); ++i)
            if (!sameValue(x.at(i), y.at(i)))
                return false;
        return true;
    }
    case QMetaType::Double: {
        const double x = a.toDouble();
        const double y = b.toDouble();
        return x == y || (std::isnan(x) && std::isnan(y));
    }
    default:
        return a == b;
    }
}

struct ReadResult {
    bool exists = false;
    QByteArray bytes;
    QString error; // set when the file exists but cannot be read
};

ReadResult readSettingsFile(const QString &path)
{
    ReadResult result;
    if (path.isEmpty())
        return result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (QFileInfo::exists(path)) {
            result.exists = true;
            result.error = file.errorString();
        }
        return result;
    }
    result.exists = true;
    result.bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        result.error = file.errorString();
    return result;
}

QString systemError(const char *what, int error)
{
    return QString::fromLatin1(what) + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error));
}

// Replaces `path` with `bytes` only once a complete copy is on disk: written to a temporary file
// beside it, checked, synced and renamed over it, and the folder synced so that the rename
// survives a crash. On any failure the temporary file goes and the old file stays.
bool replaceFile(const QString &path, const QByteArray &bytes, QString *failure)
{
    const QByteArray target = QFile::encodeName(path);
    QByteArray temp = target + ".XXXXXX";
    const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0) {
        *failure = systemError("cannot create a file beside it", errno);
        return false;
    }
    const auto fail = [&](const char *what, int error) {
        *failure = systemError(what, error);
        ::close(fd);
        ::unlink(temp.constData());
        return false;
    };
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return fail("write", n < 0 ? errno : ENOSPC);
        done += n;
    }
    if (::fsync(fd) != 0)
        return fail("sync", errno);
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return fail("stat", errno);
    if (st.st_size != bytes.size())
        return fail("the copy is incomplete", EIO);
    // Readable by the user alone, as the folder's other private files.
    ::fchmod(fd, S_IRUSR | S_IWUSR);
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temp.constData());
        *failure = systemError("close", error);
        return false;
    }
    if (::rename(temp.constData(), target.constData()) != 0) {
        const int error = errno;
        ::unlink(temp.constData());
        *failure = systemError("rename", error);
        return false;
    }
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    const int dirFd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return true;
}

} // namespace

UserDefaults &UserDefaults::standard()
{
    // Never destroyed: code running while the process ends may still read settings.
    static UserDefaults *const store = [] {
        VEKError error;
        const QString dir = VEKPaths::configDirectory(&error);
        if (dir.isEmpty())
            VEKLog(QStringLiteral("Settings are kept in memory only: ") + error.text());
        auto *defaults =
            new UserDefaults(dir.isEmpty() ? QString() : dir + QStringLiteral("/Preferences.plist"));
        // Belong to the main thread even when a worker asks first.
        if (QCoreApplication *app = QCoreApplication::instance()) {
            defaults->moveToThread(app->thread());
            QObject::connect(app, &QCoreApplication::aboutToQuit, defaults,
                             [defaults] { defaults->synchronize(); });
        }
        // A command-line run may end without an event loop; nothing pending is lost then either.
        std::atexit([] { standard().synchronize(); });
        return defaults;
    }();
    return *store;
}

UserDefaults::UserDefaults(const QString &path, QObject *parent) : QObject(parent), m_path(path)
{
    m_writeTimer = new QTimer(this);
    m_writeTimer->setSingleShot(true);
    m_writeTimer->setInterval(writeDelayMs);
    connect(m_writeTimer, &QTimer::timeout, this, &UserDefaults::writeInBackground);
    m_writer.setMaxThreadCount(1);
    m_writer.setExpiryTimeout(2000);
    load();
}

UserDefaults::~UserDefaults()
{
    m_writer.waitForDone();
    synchronize();
}

QString UserDefaults::path() const { return m_path; }

void UserDefaults::load()
{
    ReadResult file = readSettingsFile(m_path);
    m_diskExists = file.exists;
    m_diskBytes = file.bytes;
    if (!file.exists)
        return; // a first start

    VEKError error;
    QVariant root;
    if (file.error.isEmpty())
        root = VEKPropertyList::fromData(file.bytes, &error);
    if (root.typeId() == QMetaType::QVariantMap) {
        m_values = root.toMap();
        m_onDisk = m_values;
        return;
    }

    // Moved aside rather than overwritten by the next change, so that nothing is lost for good.
    const bool unreadable = !file.error.isEmpty();
    const QString reason = m_path + QStringLiteral(": ")
        + (unreadable        ? file.error
               : root.isValid() ? QStringLiteral("the top level is not a dictionary")
                                : error.failureReason());
    const QString aside = m_path + QStringLiteral(".corrupt");
    QFile::remove(aside);
    const bool moved = QFile::rename(m_path, aside);
    VEKLog(QStringLiteral("Settings file %1 (%2); %3; starting from the defaults")
               .arg(unreadable ? QStringLiteral("unreadable") : QStringLiteral("damaged"), reason,
                    moved ? QStringLiteral("moved aside to ") + aside
                          : QStringLiteral("it could not be moved aside")));
    m_loadError = VEKError(errorDomain, unreadable ? FileUnreadable : FileDamaged,
                           VEKLocalizedString(unreadable ? "Error_settingsRead"
                                                         : "Error_settingsCorrupt"),
                           reason);
    if (moved) {
        m_diskExists = false;
        m_diskBytes.clear();
    }
}

QVariant UserDefaults::effectiveValue(const QString &key) const
{
    auto stored = m_values.constFind(key);
    if (stored != m_values.cend())
        return stored.value();
    return m_defaults.value(key);
}

void UserDefaults::registerDefaults(const QVariantMap &defaults)
{
    QStringList changed;
    {
        QWriteLocker lock(&m_lock);
        for (auto it = defaults.cbegin(); it != defaults.cend(); ++it) {
            const QVariant value = normalized(it.value(), 0);
            if (!value.isValid()) {
                VEKLog(QStringLiteral("Default for %1 not registered: a settings file cannot hold it")
                           .arg(it.key()));
                continue;
            }
            const QVariant before = effectiveValue(it.key());
            m_defaults.insert(it.key(), value);
            if (!sameValue(before, effectiveValue(it.key())))
                changed.append(it.key());
        }
    }
    for (const QString &key : std::as_const(changed))
        emit valueChanged(key);
}

QVariant UserDefaults::value(const QString &key) const
{
    QReadLocker lock(&m_lock);
    return effectiveValue(key);
}

bool UserDefaults::boolForKey(const QString &key) const
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::Double)
        return v.toDouble() != 0.0;
    if (VEKVariant::isNumberOrBool(v))
        return v.toLongLong() != 0 || v.toULongLong() != 0;
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed();
        if (s.startsWith(QLatin1Char('y'), Qt::CaseInsensitive)
            || s.startsWith(QLatin1Char('t'), Qt::CaseInsensitive))
            return true;
        bool ok = false;
        const double d = s.toDouble(&ok);
        return ok && d != 0.0;
    }
    return false;
}

qint64 UserDefaults::integerForKey(const QString &key) const
{
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::Double) {
        const double d = v.toDouble();
        if (std::isnan(d))
            return 0;
        return d >= 9.2233720368547758e18 ? LLONG_MAX : d <= -9.2233720368547758e18 ? LLONG_MIN
                                                                                   : qint64(d);
    }
    if (VEKVariant::isNumberOrBool(v))
        return v.toLongLong();
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed();
        bool ok = false;
        const qint64 n = s.toLongLong(&ok);
        if (ok)
            return n;
        const double d = s.toDouble(&ok);
        return ok && std::isfinite(d) && std::fabs(d) < 9.2e18 ? qint64(d) : 0;
    }
    return 0;
}

double UserDefaults::doubleForKey(const QString &key) const
{
    const QVariant v = value(key);
    if (VEKVariant::isNumberOrBool(v))
        return v.toDouble();
    if (v.typeId() == QMetaType::QString)
        return v.toString().trimmed().toDouble();
    return 0.0;
}

QString UserDefaults::stringForKey(const QString &key) const
{
    const QVariant v = value(key);
    switch (v.typeId()) {
    case QMetaType::QString:
        return v.toString();
    case QMetaType::Bool:
        return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Double:
        return QString::number(v.toDouble(), 'g', QLocale::FloatingPointShortest);
    default:
        return VEKVariant::isNumberOrBool(v) ? v.toString() : QString();
    }
}

QVariantMap UserDefaults::dictionaryForKey(const QString &key) const
{
    const QVariant v = value(key);
    return v.typeId() == QMetaType::QVariantMap ? v.toMap() : QVariantMap();
}

QVariantList UserDefaults::arrayForKey(const QString &key) const
{
    const QVariant v = value(key);
    return v.typeId() == QMetaType::QVariantList ? v.toList() : QVariantList();
}

QByteArray UserDefaults::dataForKey(const QString &key) const
{
    const QVariant v = value(key);
    return v.typeId() == QMetaType::QByteArray ? v.toByteArray() : QByteArray();
}

QDateTime UserDefaults::dateForKey(const QString &key) const
{
    const QVariant v = value(key);
    return v.typeId() == QMetaType::QDateTime ? v.toDateTime() : QDateTime();
}

QStringList UserDefaults::takeInOutsideChanges()
{
    ReadResult file = readSettingsFile(m_path);
    if (!file.error.isEmpty() || (file.exists == m_diskExists && file.bytes == m_diskBytes))
        return {};
    m_diskExists = file.exists;
    m_diskBytes = file.bytes;
    QVariantMap onDisk;
    if (file.exists) {
        VEKError error;
        const QVariant root = VEKPropertyList::fromData(file.bytes, &error);
        if (root.typeId() != QMetaType::QVariantMap) {
            VEKLog(QStringLiteral("Settings file changed by another program is unusable (%1); "
                                  "replacing it")
                       .arg(root.isValid() ? QStringLiteral("not a dictionary")
                                           : error.failureReason()));
            return {};
        }
        onDisk = root.toMap();
    }

    QSet<QString> keys;
    for (auto it = onDisk.cbegin(); it != onDisk.cend(); ++it)
        keys.insert(it.key());
    for (auto it = m_onDisk.cbegin(); it != m_onDisk.cend(); ++it)
        keys.insert(it.key());

    QStringList changed;
    QWriteLocker lock(&m_lock);
    for (const QString &key : std::as_const(keys)) {
        const QVariant theirs = onDisk.value(key);
        if (m_unsaved.contains(key) || sameValue(theirs, m_onDisk.value(key)))
            continue;
        const QVariant before = effectiveValue(key);
        if (theirs.isValid())
            m_values.insert(key, theirs);
        else
            m_values.remove(key);
        if (!sameValue(before, effectiveValue(key)))
            changed.append(key);
    }
    m_onDisk = onDisk;
    changed.sort();
    return changed;
}

bool UserDefaults::writeFile(const QVariantMap &values, QString *failure)
{
    const QByteArray bytes = VEKPropertyList::toData(values, VEKPropertyList::Format::XML);
    if (m_path.isEmpty()) {
        *failure = QStringLiteral("no settings folder");
    } else if (bytes.isEmpty()) {
        // Never an empty file in place of a good one.
        *failure = QStringLiteral("the values could not be written as a property list");
    } else {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        QString reason;
        if (!replaceFile(m_path, bytes, &reason))
            *failure = m_path + QStringLiteral(": ") + reason;
    }
    if (!failure->isEmpty()) {
        // Once per run of failures: a slider dragged over an unwritable folder would flood the log.
        if (!m_writeFailing)
            VEKLog(VEKLocalizedString("Error_settingsWrite") + QStringLiteral(": ") + *failure
                   + QStringLiteral("; kept in memory"));
        m_writeFailing = true;
        return false;
    }
    if (m_writeFailing)
        VEKLog(QStringLiteral("Settings saved again to ") + m_path);
    m_writeFailing = false;
    m_onDisk = values;
    m_diskExists = true;
    m_diskBytes = bytes;
    return true;
}

void UserDefaults::scheduleWrite()
{
    if (QThread::currentThread() == thread()) {
        if (!m_writeTimer->isActive())
            m_writeTimer->start();
        return;
    }
    QMetaObject::invokeMethod(this, [this] {
        if (!m_writeTimer->isActive())
            m_writeTimer->start();
    }, Qt::QueuedConnection);
}

void UserDefaults::setValue(const QString &key, const QVariant &value)
{
    QVariant stored;
    if (value.isValid()) {
        stored = normalized(value, 0);
        if (!stored.isValid()) {
            VEKLog(QStringLiteral("Setting %1 not stored: a settings file cannot hold a %2")
                       .arg(key, QString::fromLatin1(value.metaType().name())));
            return;
        }
    }

    bool changed = false;
    {
        QWriteLocker lock(&m_lock);
        const QVariant before = m_values.value(key);
        if (sameValue(before, stored))
            return;
        const QVariant effectiveBefore = effectiveValue(key);
        if (stored.isValid())
            m_values.insert(key, stored);
        else
            m_values.remove(key);
        m_unsaved.insert(key);
        changed = !sameValue(effectiveBefore, effectiveValue(key));
    }
    scheduleWrite();
    // Outside the lock: receivers may read or change settings themselves.
    if (changed)
        emit valueChanged(key);
}

bool UserDefaults::writePending(QStringList *takenIn, QString *failure)
{
    QMutexLocker writeLock(&m_writeMutex);
    {
        QReadLocker lock(&m_lock);
        if (m_unsaved.isEmpty() && !m_writeFailing)
            return true;
    }
    *takenIn = takeInOutsideChanges();
    QVariantMap snapshot;
    {
        QReadLocker lock(&m_lock);
        snapshot = m_values;
    }
    if (!sameValue(snapshot, m_onDisk) && !writeFile(snapshot, failure))
        return false;
    // Keys changed again while the file was written wait for the next write.
    QWriteLocker lock(&m_lock);
    for (auto it = m_unsaved.begin(); it != m_unsaved.end();)
        it = sameValue(m_values.value(*it), snapshot.value(*it)) ? m_unsaved.erase(it) : std::next(it);
    return true;
}

void UserDefaults::writeInBackground()
{
    // The sync can take far longer than a frame on a busy disk: never on the caller's thread.
    m_writer.start([this] {
        // The pool may have let its thread expire since the last write: name the one running now.
        pthread_setname_np(pthread_self(), "quivera-prefs");
        QStringList takenIn;
        QString failure;
        writePending(&takenIn, &failure);
        if (!takenIn.isEmpty())
            QMetaObject::invokeMethod(this, [this, takenIn] {
                for (const QString &k : takenIn)
                    emit valueChanged(k);
            }, Qt::QueuedConnection);
    });
}

bool UserDefaults::synchronize(VEKError *error)
{
    QStringList changed;
    QString failure;
    const bool ok = writePending(&changed, &failure);
    for (const QString &k : std::as_const(changed))
        emit valueChanged(k);
    if (ok)
        return true;
    VEKError::set(error, VEKError(errorDomain, 3, VEKLocalizedString("Error_settingsWrite"), failure));
    return false;
}

void UserDefaults::removeValue(const QString &key) { setValue(key, QVariant()); }

void UserDefaults::reload()
{
    m_writeTimer->stop();
    m_writer.waitForDone();
    QMutexLocker writeLock(&m_writeMutex);
    QWriteLocker lock(&m_lock);
    m_values.clear();
    m_unsaved.clear();
    m_onDisk.clear();
    m_loadError = VEKError();
    m_writeFailing = false;
    load();
}

QStringList UserDefaults::allKeys() const
{
    QReadLocker lock(&m_lock);
    QStringList keys = m_defaults.keys();
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        if (!m_defaults.contains(it.key()))
            keys.append(it.key());
    keys.sort();
    return keys;
}

QVariantMap UserDefaults::dictionaryRepresentation() const
{
    QReadLocker lock(&m_lock);
    QVariantMap all = m_defaults;
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        all.insert(it.key(), it.value());
    return all;
}

VEKError UserDefaults::takeLoadError()
{
    QWriteLocker lock(&m_lock);
    return std::exchange(m_loadError, VEKError());
}
