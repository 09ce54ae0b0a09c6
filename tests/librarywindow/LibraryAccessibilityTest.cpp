// The library window as a screen reader meets it: the real program driven through AT-SPI.

#include "support/frontend/QuietLaunch.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

TEST(LibraryAccessibility, AScreenReaderSearchesTheSongsAndPicksAPlaylist)
{
    ScreenReaderRun run;
    run.importSongs({QStringLiteral("apple"), QStringLiteral("banana"), QStringLiteral("cherry")}, 2.0);
    // A playlist of the first and the last song, made before the program starts.
    QStringList ids;
    const QRegularExpression row(QStringLiteral("^\\s*(-?\\d+)\\s+\\S+\\s+(apple|cherry)$"));
    for (const QString &line : run.cli({QStringLiteral("songs")}).split(QLatin1Char('\n')))
        if (const auto m = row.match(line); m.hasMatch())
            ids << m.captured(1);
    ASSERT_EQ(ids.size(), 2);
    const QString playlist =
        run.cli(QStringList{QStringLiteral("playlist"), QStringLiteral("new")} + ids).trimmed();
    run.cli({QStringLiteral("playlist"), QStringLiteral("rename"), playlist, QStringLiteral("Orchard")});
    run.drive(QStringLiteral("librarywindow/accessibility/library_accessibility.py"));
}
