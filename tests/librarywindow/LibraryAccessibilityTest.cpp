// The library window as a screen reader meets it: the real program driven through AT-SPI.

#include "support/frontend/QuietLaunch.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(LibraryAccessibility, AScreenReaderSearchesTheSongsAndPicksAPlaylist)
{
    ScreenReaderRun run;
    run.importSongs({u"apple"_s, u"banana"_s, u"cherry"_s}, 2.0);
    // A playlist of the first and the last song, made before the program starts.
    QStringList ids;
    const QRegularExpression row(u"^\\s*(-?\\d+)\\s+\\S+\\s+(apple|cherry)$"_s);
    for (const QString &line : run.cli({u"songs"_s}).split(QLatin1Char('\n')))
        if (const auto m = row.match(line); m.hasMatch())
            ids << m.captured(1);
    ASSERT_EQ(ids.size(), 2);
    const QString playlist = run.cli(QStringList{u"playlist"_s, u"new"_s} + ids).trimmed();
    run.cli({u"playlist"_s, u"rename"_s, playlist, u"Orchard"_s});
    run.drive(u"librarywindow/accessibility/library_accessibility.py"_s);
}
