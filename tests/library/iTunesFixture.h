#pragma once

// An iTunes library file as the tests of the read-in need it, written by Python's plistlib (an
// implementation independent of ours) in the form iTunes gives it. Shared by the library tests
// and the command-line tests.

#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

namespace iTunesFixture {

// The tracks the filter must keep, and the playlists that must come out (with their songs).
inline const QList<qint64> keptTrackIDs = {101, 102, 103, 104, 105, 106, 107, 110};
inline const QList<qint64> playlistIDs = {2000, 2001, 2002, 2003};

// Writes the file at `xmlPath`; track 101's file is made at `musicDir`/exists.m4a, every other
// file is missing.
inline void write(const QString &xmlPath, const QString &musicDir)
{
    QDir().mkpath(QFileInfo(xmlPath).absolutePath());
    QDir().mkpath(musicDir);
    QFile existing(musicDir + QStringLiteral("/exists.m4a"));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("not opened by the read-in");
    existing.close();

    const QString script = QStringLiteral(R"(
import plistlib, sys, datetime, urllib.parse
out, music = sys.argv[1:3]
def url(path): return 'file://localhost' + urllib.parse.quote(path)
gone = '/Users/someone/Music/iTunes/iTunes Media/Music/Gone/'
def track(tid, kind=None, location=True, **extra):
    t = {'Track ID': tid, 'Name': 'Track %d' % tid, 'Persistent ID': '%016X' % tid, 'Play Count': 3}
    if kind is not None: t['Kind'] = kind
    if location is True: t['Location'] = url(gone + '%d.m4a' % tid)
    elif location: t['Location'] = location
    t.update(extra)
    return t
tracks = [
  track(101, 'AAC audio file', url(music + '/exists.m4a'), **{
      'Name': 'Caf\u00e9 & <Friends>', 'Artist': 'The Artist', 'Album': 'An Album',
      'Album Artist': 'Various', 'Composer': 'Someone', 'Genre': 'Rock', 'Total Time': 215000,
      'Size': 1234567, 'Sample Rate': 44100, 'Bit Rate': 320, 'Track Number': 3, 'Track Count': 12,
      'Disc Number': 1, 'Disc Count': 2, 'Date Added': datetime.datetime(2012, 3, 4, 5, 6, 7)}),
  track(102, 'MPEG audio file', **{'Track Number': 3}),
  track(103, 'AIFF audio file', **{'Track Count': 12}),
  track(104, 'WAV audio file'),
  track(105, 'Apple Lossless audio file'),
  track(106, 'Purchased AAC audio file'),
  track(107, 'MPEG AAC audio file'),
  track(108, 'MPEG-4 video file', Movie=True),
  track(109, 'MPEG-4 video file', **{'Has Video': True}),
  track(110, 'AAC audio file', Movie=False),
  track(111, 'Protected AAC audio file'),
  track(112, None),
  track(113, 'FLAC audio file'),
  track(114, 'MPEG audio file', 'http://example.com/114.mp3'),
  track(115, 'MPEG audio file', False),
]
def items(*ids): return [{'Track ID': i} for i in ids]
playlists = [
  {'Master': True, 'Playlist ID': 1000, 'Name': 'Library', 'Visible': False, 'All Items': True,
   'Playlist Items': items(*range(101, 116))},
  {'Master': False, 'Playlist ID': 1001, 'Name': 'Not master either'},
  {'Distinguished Kind': 4, 'Playlist ID': 1002, 'Name': 'Music', 'Playlist Items': items(101, 102)},
  {'Playlist ID': 2000, 'Name': 'A folder', 'Folder': True, 'Playlist Items': items(101, 102)},
  {'Playlist ID': 2001, 'Name': 'Mix', 'All Items': True,
   'Playlist Items': items(104, 108, 101, 999, 111, 103)},
  {'Playlist ID': 2002, 'Name': 'Smart', 'Smart Info': b'\x00\x01', 'Smart Criteria': b'\x02',
   'Playlist Items': items(105)},
  {'Playlist ID': 2003, 'Name': 'Empty'},
]
library = {'Major Version': 1, 'Minor Version': 1, 'Application Version': '12.9',
           'Date': datetime.datetime(2020, 1, 1), 'Music Folder': url('/Users/someone/Music/iTunes/iTunes Media/'),
           'Tracks': {str(t['Track ID']): t for t in tracks}, 'Playlists': playlists}
with open(out, 'wb') as f:
    plistlib.dump(library, f, sort_keys=False)
)");
    QByteArray output;
    ASSERT_EQ(TestEnvironment::run(QStringLiteral("python3"),
                                   {QStringLiteral("-c"), script, xmlPath, musicDir}, &output),
              0)
        << output.constData();
}

} // namespace iTunesFixture
