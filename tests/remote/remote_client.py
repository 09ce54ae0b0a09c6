#!/usr/bin/env python3
"""An independent client of Quivera's remote service, standard library only.

Messages are keyed archives in frames of a 4-byte big-endian length, written and read by
keyed_archive.py with plistlib alone, a reader that shares no code with ours.

    remote_client.py session PORT LIBRARY.json   library, playlists, volume and transport reach
                                                  the real player (each command's rules are the C++
                                                  tests' against a fake host)

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
    def __init__(self, port):
        last = None
        for _ in range(50):
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

    def receive(self):
        return read_frame(self.sock)

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
        library = json.load(f)  # {"names": [...], "playlist", "playlistOrder"}
    c = Client(port)
    first = c.receive()
    check(is_status_push(first) and first["isPlaying"] is False, "the first message is a status push: %r" % first)

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
    ids = {e.get("name"): e["songID"] for e in ask("getSongs")["songs"]}
    check(set(ids) == set(library["names"]), "the library's songs: %r" % ids)
    named = [p for p in ask("getPlaylists")["playlists"]["Quivera"] if p.get("name") == library["playlist"]]
    check(len(named) == 1, "the made playlist is listed")
    playlist_id = named[0]["playlistID"]
    in_playlist = ask("getSongsForPlaylist", playlistID=playlist_id)["songs"]
    check([e["songID"] for e in in_playlist] == [ids[n] for n in library["playlistOrder"]],
          "the playlist in its manual order: %r" % in_playlist)

    # Settings reach the player's store (the test reads the volume afterwards).
    c.send({"command": "volumeUp", "target": 1})
    c.send({"command": "volumeDown", "target": 2})

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
    wait_push(lambda s: s.get("name") == order[0] and s["isPlaying"], "playSong plays it")
    reply = ask("position", value=0.5)
    check(0.3 <= reply["position"] <= 0.8, "seeked to the middle: %r" % reply)

    c.send({"command": "play"})  # a toggle: this one pauses
    wait_push(lambda s: s["isPlaying"] is False, "play toggles to pause")
    c.send({"command": "next"})
    wait_push(lambda s: s.get("name") == order[1], "next moves on")
    c.close()
    print("session ok")


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    scenario, port = argv[1], int(argv[2])
    try:
        if scenario == "session":
            session(port, argv[3])
        else:
            print("unknown scenario " + scenario, file=sys.stderr)
            return 2
    except (Failure, Closed, OSError, ValueError, KeyError) as e:
        print("%s failed: %s: %s" % (scenario, type(e).__name__, e), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
