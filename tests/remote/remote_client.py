#!/usr/bin/env python3
"""An independent client of Quivera's remote service, standard library only.

Messages are keyed archives in frames of a 4-byte big-endian length, written and read by
keyed_archive.py with plistlib alone, a reader that shares no code with ours.

    remote_client.py session PORT LIBRARY.json   library, playlists, dim, volume and transport
    remote_client.py refused PORT                 exit 0 when no status arrives (refused)

Exit code 0 when everything went as expected; otherwise the reason is on standard error.
"""

import json
import os
import socket
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from keyed_archive import Closed, archive, frame, read_frame  # noqa: E402


# --- Connection ----------------------------------------------------------------------------

class Client:
    def __init__(self, port, attempts=50):
        last = None
        for _ in range(attempts):
            try:
                self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
                break
            except OSError as e:  # the service republishes a moment after a client leaves
                last = e
                time.sleep(0.1)
        else:
            raise last

    def send(self, message):
        self.sock.sendall(frame(archive(message)))

    def receive(self, timeout=10):
        self.sock.settimeout(timeout)
        return read_frame(self.sock)

    def expect_nothing(self, seconds=0.5):
        """True when no message arrives within `seconds`."""
        try:
            self.receive(timeout=seconds)
            return False
        except socket.timeout:
            return True

    def close(self):
        self.sock.close()


STATUS_KEYS = {"isPlaying", "position", "name", "artist", "length", "dim", "mute", "hostname"}


class Failure(Exception):
    pass


def check(condition, what):
    if not condition:
        raise Failure(what)


def is_status_push(message):
    return (isinstance(message, dict) and "hostname" in message and "target" not in message
            and "action" not in message and set(message) <= STATUS_KEYS)


# --- Scenarios -----------------------------------------------------------------------------

def session(port, library_file):
    with open(library_file, encoding="utf-8") as f:
        library = json.load(f)  # {"songs": [{name, artist, album}], "playlist", "playlistOrder"}
    c = Client(port)
    first = c.receive()
    check(is_status_push(first), "the first message is a status push: %r" % first)
    check(first["isPlaying"] is False and first["position"] == 0.0, "nothing plays yet: %r" % first)
    check({"name", "artist", "length"}.isdisjoint(first), "no song, no song keys: %r" % first)

    serial = [0]

    def ask(command, **args):
        serial[0] += 1
        request = dict(args, command=command, target=serial[0], action="a%d" % serial[0])
        c.send(request)
        while True:
            reply = c.receive()
            if reply.get("target") == serial[0]:
                check(reply.get("action") == "a%d" % serial[0], "action echoed: %r" % reply)
                del reply["target"], reply["action"]
                return reply
            check(is_status_push(reply), "only pushes come between: %r" % reply)

    # Browsing.
    songs = ask("getSongs")["songs"]
    check(len(songs) == len(library["songs"]), "all songs: %d" % len(songs))
    by_name = {}
    for entry in songs:
        check(isinstance(entry["songID"], int), "songID is an integer")
        by_name[entry.get("name")] = entry
    for known in library["songs"]:
        entry = by_name.get(known["name"])
        check(entry is not None, "song %s listed" % known["name"])
        expected = {"songID": entry["songID"], "name": known["name"]}
        if known.get("artist"):
            expected["artist"] = known["artist"]
            if known.get("album"):
                expected["album"] = known["album"]
        check(entry == expected, "full entry of %s: %r" % (known["name"], entry))
    ids = {k["name"]: by_name[k["name"]]["songID"] for k in library["songs"]}

    playlists = ask("getPlaylists")["playlists"]
    check(set(playlists) == {"Quivera", "iTunes"}, "both lists: %r" % playlists)
    check(len(playlists["iTunes"]) == 1, "the iTunes all-songs playlist: %r" % playlists["iTunes"])
    local = playlists["Quivera"]
    check(local[0]["playlistID"] == -1, "the library comes first: %r" % local)
    named = [p for p in local if p.get("name") == library["playlist"]]
    check(len(named) == 1, "the imported playlist is listed: %r" % local)
    playlist_id = named[0]["playlistID"]

    in_playlist = ask("getSongsForPlaylist", playlistID=playlist_id)["songs"]
    check([e["songID"] for e in in_playlist] == [ids[n] for n in library["playlistOrder"]],
          "the playlist in its manual order: %r" % in_playlist)
    # The playlist's own time stamp.
    stamp = ask("getPlaylistLastModification", playlistID=playlist_id)["lastModification"]
    check(isinstance(stamp, float) and stamp > 6e8, "playlist stamp: %r" % stamp)

    # Settings: a change of dim is pushed; the volume is not.
    c.send({"command": "dim", "value": True})
    push = c.receive()
    check(is_status_push(push) and push["dim"] is True, "dim pushes: %r" % push)
    c.send({"command": "volumeUp", "target": 1})
    c.send({"command": "volumeDown", "target": 2})
    check(c.expect_nothing(), "volume steps send nothing")

    # Transport. Each change may come as more than one push (song, then playing state).
    def wait_push(predicate, what):
        deadline = time.time() + 10
        last = None
        while time.time() < deadline:
            last = c.receive()
            check(is_status_push(last), "pushes only: %r" % last)
            if predicate(last):
                return last
        raise Failure("%s: last push %r" % (what, last))

    order = library["playlistOrder"]
    c.send({"command": "playSong", "songID": ids[order[0]], "playlistID": playlist_id})
    status = wait_push(lambda s: s.get("name") == order[0] and s["isPlaying"], "playSong plays it")
    check(isinstance(status["length"], float) and status["length"] > 0, "length: %r" % status)
    check(status.get("artist") == next(k for k in library["songs"] if k["name"] == order[0]).get("artist"),
          "artist in the status: %r" % status)

    reply = ask("position", value=0.5)
    check(reply.get("name") == order[0] and set(reply) <= STATUS_KEYS, "position replies status")
    check(0.3 <= reply["position"] <= 0.8, "seeked to the middle: %r" % reply)
    check(ask("getCurrentStatus").get("name") == order[0], "current status")

    c.send({"command": "play"})  # a toggle: this one pauses
    wait_push(lambda s: s["isPlaying"] is False, "play toggles to pause")
    c.send({"command": "next"})
    wait_push(lambda s: s.get("name") == order[1], "next moves on")
    c.send({"command": "play"})
    wait_push(lambda s: s["isPlaying"] is True, "play toggles back")
    c.close()
    print("session ok")


def refused(port):
    try:
        c = Client(port, attempts=1)
    except OSError:
        print("refused")
        return
    try:
        message = c.receive(timeout=2)
    except (socket.timeout, Closed, ConnectionResetError):
        print("refused")
        return
    raise Failure("a second client was served: %r" % message)


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    scenario, port = argv[1], int(argv[2])
    try:
        if scenario == "session":
            session(port, argv[3])
        elif scenario == "refused":
            refused(port)
        else:
            print("unknown scenario " + scenario, file=sys.stderr)
            return 2
    except (Failure, Closed, OSError, ValueError, KeyError) as e:
        print("%s failed: %s: %s" % (scenario, type(e).__name__, e), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
