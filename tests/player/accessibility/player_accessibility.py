#!/usr/bin/python3
# Drives the running player as a screen reader would, through AT-SPI: finds the player window's
# controls by their accessible names and roles, presses Play and waits for MPRIS to report
# Playing, sets the volume knob to one half and waits for the setting to say so.
#
#   player_accessibility.py CLI   CLI: the quivera-cli that reads the settings back
# Exit 0 when all holds; 1 with the reason on standard error otherwise.

import subprocess
import sys

from screen_reader import application, expect_parts, fail, wait_for

CLI = sys.argv[1]

app = wait_for("the player on the accessibility bus", application, 90.0)
expected = {
    "Play": "push button", "Previous": "push button", "Next": "push button",
    "Repeat": "push button", "Shuffle": "check box", "Mute": "check box", "Dim": "check box",
    "Volume": "dial", "Position": "slider",
}
for slot in (1, 2, 3):
    expected["Effect %d" % slot] = "push button"
    expected["Effect %d on" % slot] = "check box"
named = expect_parts(app, "Quivera", expected, "control")

play = named["Play"].queryAction()
if play.nActions < 1:
    fail("Play offers no action")
play.doAction(0)


wait_for("MPRIS to report Playing", lambda: subprocess.run(
    ["playerctl", "-p", "quivera", "status"], capture_output=True, text=True).stdout.strip() == "Playing")

named["Volume"].queryValue().currentValue = 0.5


def volume_setting():
    out = subprocess.run([CLI, "settings", "get", "volume"], capture_output=True, text=True)
    try:
        return abs(float(out.stdout.strip()) - 0.5) < 1e-6
    except ValueError:
        return False


wait_for("the volume setting to read 0.5", volume_setting, 10.0)
print("OK: %d controls by name, Play played, the volume is 0.5" % len(expected))
