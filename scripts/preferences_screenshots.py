#!/usr/bin/python3
# Brings each pane of the preferences to the front through AT-SPI and captures the window.
#   preferences_screenshots.py OUT_DIR
import os
import subprocess
import sys
import time

import pyatspi

# The waiting and the finding of the program on the bus are the accessibility tests' own.
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "support"))
from screen_reader import application, wait_for  # noqa: E402

OUT = sys.argv[1]
PANES = os.environ["PANES"].split(",") if os.environ.get("PANES") else ["General", "Commands", "Preferred Format", "iTunes", "Output", "Headphones", "Advanced"]


def window_id(name):
    out = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^%s$" % name],
                         capture_output=True, text=True)
    ids = out.stdout.split()
    return ids[0] if ids else None


player = wait_for("the player window", lambda: window_id("Quivera"), 60)
time.sleep(1)
subprocess.run(["playerctl", "-p", "quivera", "play"])


def open_preferences():
    # The key goes to the window with the focus; a press that came before the player could take
    # it is pressed again.
    subprocess.run(["xdotool", "windowfocus", "--sync", player])
    subprocess.run(["xdotool", "key", "ctrl+comma"])
    subprocess.run(["xdotool", "key", "--window", player, "ctrl+comma"])
    end = time.monotonic() + 3
    while time.monotonic() < end:
        if window_id("Preferences"):
            return window_id("Preferences")
        time.sleep(0.2)
    return None


prefs = wait_for("the preferences window", open_preferences)
subprocess.run(["xdotool", "windowmove", prefs, "40", "40"])
app = wait_for("the program on the accessibility bus", application)


def pane_button(name):
    for node in pyatspi.utils.findAllDescendants(app, lambda n: n.name == name):
        if node.getRoleName() in ("push button", "toggle button", "check box"):
            return node
    return None


for pane in PANES:
    button = wait_for("the button of " + pane, lambda: pane_button(pane))
    button.queryAction().doAction(0)
    time.sleep(1.2)
    path = "%s/preferences-%s.png" % (OUT, pane.lower().replace(" ", "-"))
    subprocess.run(["import", "-window", prefs, path], check=True)
    print(path)


# A slider while it is dragged shows its value beside the knob; not when only some panes were
# asked for (the signal path's pictures want the settings left as they are).
if "PANES" not in os.environ:
    pane_button("Headphones").queryAction().doAction(0)
    time.sleep(1)
    treble = wait_for("the treble slider", lambda: next(iter(pyatspi.utils.findAllDescendants(
        app, lambda n: n.name == "Treble" and n.getRoleName() == "slider")), None))
    box = treble.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    x, y = box.x + box.width // 2, box.y + box.height // 2
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "mousedown", "1"])
    for step in range(1, 9):
        subprocess.run(["xdotool", "mousemove", str(x + 6 * step), str(y)])
        time.sleep(0.05)
    time.sleep(0.5)
    path = "%s/preferences-headphones-dragging.png" % OUT
    subprocess.run(["import", "-window", prefs, path], check=True)
    subprocess.run(["xdotool", "mouseup", "1"])
    print(path)
