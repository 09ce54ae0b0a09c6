#!/usr/bin/python3
# Drives the running player as a screen reader would, through AT-SPI: finds the player window's
# controls by their accessible names and roles, presses Play and waits for MPRIS to report
# Playing, sets the volume knob to one half and waits for the setting to say so.
#
#   player_accessibility.py CLI   CLI: the quivera-cli that reads the settings back
# Exit 0 when all holds; 1 with the reason on standard error otherwise.

import subprocess
import sys
import time

import pyatspi

CLI = sys.argv[1]


def fail(message):
    try:
        message += " (applications on the bus: %s)" % applications()
    except Exception:  # the bus itself may be what failed
        pass
    print("FAIL: " + message, file=sys.stderr)
    sys.exit(1)


def wait_for(what, check, seconds=30.0):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = check()
        if value:
            return value
        time.sleep(0.2)
    fail("timed out waiting for " + what)


def player_application():
    desktop = pyatspi.Registry.getDesktop(0)
    for app in desktop:
        if app is not None and "quivera" in (app.name or "").lower():
            return app
    return None


def controls(app, title="Quivera"):
    # By window: the library window has a Shuffle and a Repeat of its own and a menu bar.
    found = {}
    for window in app:
        if window is None or window.name != title:
            continue
        for node in pyatspi.utils.findAllDescendants(window, lambda n: bool(n.name)):
            found.setdefault(node.name, node)
    return found


def applications():
    return [a.name for a in pyatspi.Registry.getDesktop(0) if a is not None]


app = wait_for("the player on the accessibility bus", player_application, 90.0)
expected = {
    "Play": "push button", "Previous": "push button", "Next": "push button",
    "Repeat": "push button", "Shuffle": "check box", "Mute": "check box", "Dim": "check box",
    "Volume": "dial", "Position": "slider",
}
for slot in (1, 2, 3):
    expected["Effect %d" % slot] = "push button"
    expected["Effect %d on" % slot] = "check box"
named = wait_for("the player window's controls", lambda: (lambda c: c if "Play" in c else None)(controls(app)))
for name, role in expected.items():
    if name not in named:
        fail("no control named %r (names: %s)" % (name, sorted(named)))
    if named[name].getRoleName() != role:
        fail("%r is a %s, not a %s" % (name, named[name].getRoleName(), role))

play = named["Play"].queryAction()
if play.nActions < 1:
    fail("Play offers no action")
play.doAction(0)


def mpris_status():
    out = subprocess.run(["playerctl", "-p", "quivera", "status"], capture_output=True, text=True)
    return out.stdout.strip() == "Playing"


wait_for("MPRIS to report Playing", mpris_status)

named["Volume"].queryValue().currentValue = 0.5


def volume_setting():
    out = subprocess.run([CLI, "settings", "get", "volume"], capture_output=True, text=True)
    try:
        return abs(float(out.stdout.strip()) - 0.5) < 1e-6
    except ValueError:
        return False


wait_for("the volume setting to read 0.5", volume_setting, 10.0)
# The library window: its parts by name, and the song table's rows read out cell by cell.
library = wait_for("the library window's parts",
                   lambda: (lambda c: c if "Songs" in c else None)(controls(app, "Quivera Library")))
for name, role in {"Songs": "table", "Search": "text", "Summary": "label"}.items():
    if name not in library:
        fail("no library part named %r (names: %s)" % (name, sorted(library)))
    if library[name].getRoleName() != role:
        fail("%r is a %s, not a %s" % (name, library[name].getRoleName(), role))
for name in ("Shuffle", "Repeat", "Artwork"):
    if name not in library:
        fail("no library button named %r" % name)
cells = [c.name for c in pyatspi.utils.findAllDescendants(library["Songs"], lambda n: n.getRoleName() == "table cell")]
if not any(name.startswith("song") for name in cells):
    fail("the song table's cells read %s" % cells[:20])

print("OK: %d controls by name, Play played, the volume is 0.5" % len(expected))
