# What the AT-SPI scripts share: failing with a reason, waiting for a condition, and finding the
# program and the named parts of its windows on the accessibility bus.

import sys
import time

import pyatspi


def fail(message):
    try:
        message += " (applications on the bus: %s)" % [a.name for a in pyatspi.Registry.getDesktop(0) if a is not None]
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


def application():
    for app in pyatspi.Registry.getDesktop(0):
        if app is not None and "quivera" in (app.name or "").lower():
            return app
    return None


def parts(app, title):
    # By window: the library window has a Shuffle and a Repeat of its own.
    found = {}
    for window in app:
        if window is not None and window.name == title:
            for node in pyatspi.utils.findAllDescendants(window, lambda n: bool(n.name)):
                found.setdefault(node.name, node)
    return found


def expect_parts(app, title, expected, what, seconds=30.0):
    # `expected`: name to role name, or to None where any role will do. The window may show before
    # all its parts are in: waits for all, then says which one is missing. Returns them all.
    found = parts(app, title)
    end = time.monotonic() + seconds
    while not all(name in found for name in expected) and time.monotonic() < end:
        time.sleep(0.2)
        found = parts(app, title)
    for name, role in expected.items():
        if name not in found:
            fail("no %s named %r (names: %s)" % (what, name, sorted(found)))
        if role and found[name].getRoleName() != role:
            fail("%r is a %s, not a %s" % (name, found[name].getRoleName(), role))
    return found
