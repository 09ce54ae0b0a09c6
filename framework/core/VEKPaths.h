#pragma once

#include "VEKError.h"

#include <QString>

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

// The file's name without its folder and last extension: "/a/b/01 Song.flac" gives "01 Song".
QString filename(const QString &path);

} // namespace VEKPaths
