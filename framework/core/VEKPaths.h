#pragma once

#include "VEKError.h"

#include <QByteArray>
#include <QIODevice>
#include <QString>

class QFile;
class QUrl;
struct stat;

// Where the program keeps its files, following the XDG base directories.
namespace VEKPaths {

// $XDG_DATA_HOME/Quivera (default ~/.local/share/Quivera), created if needed. The library
// file and the old property lists live here. Returns an empty string and fills `error` if the
// folder cannot be made.
QString supportDirectory(VEKError *error = nullptr);

// $XDG_CONFIG_HOME/Quivera (default ~/.config/Quivera), created if needed.
QString configDirectory(VEKError *error = nullptr);

// Whether a regular file exists at `path` (a folder or a dangling link is not one).
bool existsAsFile(const QString &path);

// The file's name without its folder and last extension, readable(): "/a/b/01 Song.flac" gives
// "01 Song".
QString filename(const QString &path);

// File names are bytes, and old archives hold names that are not UTF-8 (Latin-1 above all), which
// Qt's own conversions turn into U+FFFD and so lose. A path is kept as text in which each byte
// that is not part of valid UTF-8 stands as the lone surrogate U+DC00 plus the byte; native()
// gives the same bytes back, so such a file is found again by the library, the player and the
// writers. Every path handed to the system goes through native(); text without such bytes is
// plain UTF-8 either way.
QString fromNative(const QByteArray &bytes);
QByteArray native(const QString &path);

// The path of a file URL, its escapes taken as bytes ("file:///caf%E9" keeps its byte 0xE9).
QString fromURL(const QUrl &url);
// The file URL of a path, its bytes escaped.
QUrl toURL(const QString &path);

// The path made absolute against the working folder and cleaned (QFileInfo would lose kept bytes
// of a relative path).
QString absolute(const QString &path);

// The path as a person reads it: each byte kept as a surrogate shown as the Windows-1252
// character it most likely was ("caf\xE9" reads "café").
QString readable(const QString &path);

// Opens `file` on `path` (which QFile::open() cannot do for a kept byte). False with errno set
// on failure.
bool open(QFile &file, const QString &path, QIODevice::OpenMode mode);

// Whether the file and its folder may both be written (a file replaced by a new copy needs both).
bool canReplace(const QString &path);

// stat() of the path; false with errno set when it fails.
bool stat(const QString &path, struct stat *st);

} // namespace VEKPaths
