#!/usr/bin/python3
# Drives the library window as a screen reader would, through AT-SPI: finds its parts by name and
# role, reads the song table's rows cell by cell, types into the search field and sees the table
# narrow, and picks a playlist in the sidebar and sees the table show its songs.
#
#   library_accessibility.py CLI   the library holds the songs apple, banana and cherry, and a
#                                  playlist "Orchard" of apple and cherry
# Exit 0 when all holds; 1 with the reason on standard error otherwise.

import time

from screen_reader import application, expect_parts, fail, parts, wait_for

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
# The window may show before all its parts are in: wait for all, then say which one is missing.
library = parts(app, "Quivera Library")
end = time.monotonic() + 30
while not all(name in library for name in expected) and time.monotonic() < end:
    time.sleep(0.2)
    library = parts(app, "Quivera Library")
expect_parts(library, expected, "part")

songs = library["Songs"]
wait_for("the three songs in the table", lambda: sorted(rows(songs)) == ["apple", "banana", "cherry"])

library["Search"].queryEditableText().setTextContents("banana")
wait_for("the search to narrow the table to banana", lambda: rows(songs) == ["banana"])
library["Search"].queryEditableText().setTextContents("")
wait_for("the cleared search to show every song", lambda: len(rows(songs)) == 3)

sidebar = library["Playlists"].queryTable()
found = None
for row in range(sidebar.nRows):
    if sidebar.getAccessibleAt(row, 0).name == PLAYLIST:
        found = row
if found is None:
    fail("the sidebar has no %r: %s" % (PLAYLIST, [sidebar.getAccessibleAt(r, 0).name for r in range(sidebar.nRows)]))
if not sidebar.addRowSelection(found):
    fail("the sidebar refused to select %r" % PLAYLIST)
wait_for("the table to show the playlist's songs", lambda: sorted(rows(songs)) == ["apple", "cherry"])
print("OK")
