#!/usr/bin/python3
# Drives the library window as a screen reader would, through AT-SPI: finds its parts by name and
# role, reads the song table's rows cell by cell, types into the search field and sees the table
# narrow, and picks a playlist in the sidebar and sees the table show its songs.
#
#   library_accessibility.py CLI   the library holds the songs apple, banana and cherry, and a
#                                  playlist "Orchard" of apple and cherry
# Exit 0 when all holds; 1 with the reason on standard error otherwise.

from screen_reader import application, expect_parts, fail, wait_for

PLAYLIST = "Orchard"


def rows(table):
    # The song names as the table reads them out: one row's cells, then the next's.
    t = table.queryTable()
    names = []
    for row in range(t.nRows):
        cells = [t.getAccessibleAt(row, c).name for c in range(t.nColumns)]
        names.append(next((n for n in cells if n in ("apple", "banana", "cherry")), "?"))
    return names


app = wait_for("the program on the accessibility bus", application, 90.0)
expected = {"Songs": "table", "Playlists": "tree", "Search": "text", "Summary": "label",
            "Shuffle": None, "Repeat": None, "Artwork": None,
            "Search Scope": "push button", "Clear Search": "push button"}
library = expect_parts(app, "Quivera Library", expected, "part")

songs = library["Songs"]
wait_for("the three songs in the table", lambda: sorted(rows(songs)) == ["apple", "banana", "cherry"])

library["Search"].queryEditableText().setTextContents("banana")
wait_for("the search to narrow the table to banana", lambda: rows(songs) == ["banana"])
library["Search"].queryEditableText().setTextContents("")
wait_for("the cleared search to show every song", lambda: len(rows(songs)) == 3)

sidebar = library["Playlists"].queryTable()
names = [sidebar.getAccessibleAt(row, 0).name for row in range(sidebar.nRows)]
if PLAYLIST not in names:
    fail("the sidebar has no %r: %s" % (PLAYLIST, names))
if not sidebar.addRowSelection(names.index(PLAYLIST)):
    fail("the sidebar refused to select %r" % PLAYLIST)
wait_for("the table to show the playlist's songs", lambda: sorted(rows(songs)) == ["apple", "cherry"])
print("OK")
