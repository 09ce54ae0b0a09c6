#pragma once

#include <QString>
#include <vector>

// The library the benchmarks run on, made straight into a library file: `songCount` songs
// (IDs -1 down to -songCount) by 5,000 artists (every seventh "The Ärtist N", so sorting and
// the search meet diacritics), three albums each, names of two words from a small list
// (some with diacritics) and a number, 40 genres; and `playlistCount` playlists of 50 to 949
// songs each (IDs from 1000, every other one sorted by artist, the rest in their own order).
// The same seed each time, so every run and every benchmark sees the same library. Exits the
// program when the file can't be made.
namespace BenchLibrary {
void make(const QString &path, int songCount, int playlistCount = 0);

// The middle value, and the worst: what each benchmark reports.
double median(std::vector<double> values);
double worst(const std::vector<double> &values);
} // namespace BenchLibrary
