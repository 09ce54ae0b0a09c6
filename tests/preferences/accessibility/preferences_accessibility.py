#!/usr/bin/python3
# Opens the preferences of the running player with their key, brings the Output pane to the front
# through AT-SPI, moves the device's sample-rate popup to its last item, "Match song", from the
# keyboard, and waits for the setting to say -1.
#
#   preferences_accessibility.py CLI   CLI: the quivera-cli that reads the settings back
# Exit 0 when all holds; 1 with the reason on standard error otherwise.

import subprocess
import sys
import time

import pyatspi
from screen_reader import application, fail, wait_for

CLI = sys.argv[1]


def window_id(name):
    out = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^%s$" % name],
                         capture_output=True, text=True)
    ids = out.stdout.split()
    return ids[0] if ids else None


def setting(key):
    out = subprocess.run([CLI, "settings", "get", key], capture_output=True, text=True)
    return out.stdout.strip()


player = wait_for("the player window", lambda: window_id("Quivera"), 90.0)
app = wait_for("the player on the accessibility bus", application, 60.0)


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

output = wait_for("the Output pane's button", lambda: pyatspi.utils.findDescendant(
    app, lambda n: n.name == "Output" and n.getRoleName() in ("check box", "push button", "toggle button")))
output.queryAction().doAction(0)
rates = wait_for("the device's sample-rate popup", lambda: pyatspi.utils.findDescendant(
    app, lambda n: n.getRoleName() == "combo box" and n.description == "Device sample rate"
    and n.getState().contains(pyatspi.STATE_SHOWING)))
if setting("sampleRate") != "0":
    fail("the rate policy was %r before any change" % setting("sampleRate"))

subprocess.run(["xdotool", "windowfocus", "--sync", prefs])
rates.queryComponent().grabFocus()
time.sleep(0.5)
subprocess.run(["xdotool", "key", "End"])
end = time.monotonic() + 3
while setting("sampleRate") != "-1" and time.monotonic() < end:
    time.sleep(0.2)
if setting("sampleRate") != "-1":
    # Where the focus did not arrive: open the popup with the pointer, as a person would.
    box = rates.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    subprocess.run(["xdotool", "mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2), "click", "1"])
    time.sleep(0.5)
    subprocess.run(["xdotool", "key", "End", "Return"])
wait_for("sampleRate to read -1", lambda: setting("sampleRate") == "-1", 10.0)
if rates.name != "Match song":
    fail("the popup shows %r" % rates.name)
print("OK: the Output pane's rate policy is Match song, and the setting says -1")
