#!/usr/bin/env python3
"""An independent client of Quivera's remote service, standard library only.

Messages are keyed archives (binary property lists with $archiver, $top, $objects and UIDs)
in frames of a 4-byte big-endian length. This file writes and reads them with plistlib alone,
so that our archives are checked against a reader that shares no code with ours.

    remote_client.py session PORT LIBRARY.json   every command against a known library
    remote_client.py hold PORT                    connects, prints "connected", waits for a line
                                                  on standard input, then leaves
    remote_client.py refused PORT                 exit 0 when no status arrives (refused)
    remote_client.py hostile PORT                 broken input, each followed by a good client
    remote_client.py request PORT JSON            one request, prints the reply as JSON

Exit code 0 when everything went as expected; otherwise the reason is on standard error.
"""

import json
import math
import plistlib
import socket
import struct
import sys
import time

sys.setrecursionlimit(20000)  # the deep-nesting case builds its value recursively

# --- Keyed archives ------------------------------------------------------------------------

DICT_CLASS = {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]}
ARRAY_CLASS = {"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]}


def archive(root):
    objects = ["$null"]
    classes = {}

    def class_uid(record):
        name = record["$classname"]
        if name not in classes:
            objects.append(record)
            classes[name] = plistlib.UID(len(objects) - 1)
        return classes[name]

    def add(value):
        if isinstance(value, dict):
            record = {}
            objects.append(record)
            uid = plistlib.UID(len(objects) - 1)
            keys = [add(k) for k in value.keys()]
            values = [add(v) for v in value.values()]
            record["NS.keys"] = keys
            record["NS.objects"] = values
            record["$class"] = class_uid(DICT_CLASS)
            return uid
        if isinstance(value, (list, tuple)):
            record = {}
            objects.append(record)
            uid = plistlib.UID(len(objects) - 1)
            record["NS.objects"] = [add(v) for v in value]
            record["$class"] = class_uid(ARRAY_CLASS)
            return uid
        objects.append(value)
        return plistlib.UID(len(objects) - 1)

    top = add(root)
    return plistlib.dumps({"$archiver": "NSKeyedArchiver", "$version": 100000,
                           "$top": {"root": top}, "$objects": objects},
                          fmt=plistlib.FMT_BINARY, sort_keys=False)


def unarchive(data):
    plist = plistlib.loads(data)
    if plist.get("$archiver") != "NSKeyedArchiver":
        raise ValueError("not a keyed archive")
    objects = plist["$objects"]

    def get(uid, depth=0):
        if depth > 100:
            raise ValueError("too deep")
        value = objects[uid.data]
        if isinstance(value, dict) and "$class" in value:
            name = objects[value["$class"].data]["$classname"]
            if name in ("NSDictionary", "NSMutableDictionary"):
                keys = [get(k, depth + 1) for k in value["NS.keys"]]
                vals = [get(v, depth + 1) for v in value["NS.objects"]]
                return dict(zip(keys, vals))
            if name in ("NSArray", "NSMutableArray"):
                return [get(v, depth + 1) for v in value["NS.objects"]]
            if name in ("NSString", "NSMutableString"):
                return value["NS.string"]
            raise ValueError("unexpected class " + name)
        if value == "$null":
            return None
        return value

    return get(plist["$top"]["root"])


# --- Connection ----------------------------------------------------------------------------

class Closed(Exception):
    pass


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
        self.buffer = b""

    def send_raw(self, data):
        self.sock.sendall(data)

    def send(self, message):
        payload = archive(message)
        self.sock.sendall(struct.pack(">I", len(payload)) + payload)

    def _read(self, n):
        while len(self.buffer) < n:
            chunk = self.sock.recv(1 << 20)
            if not chunk:
                raise Closed()
            self.buffer += chunk
        out, self.buffer = self.buffer[:n], self.buffer[n:]
        return out

    def receive(self, timeout=10):
        self.sock.settimeout(timeout)
        (length,) = struct.unpack(">I", self._read(4))
        return unarchive(self._read(length))

    def expect_nothing(self, seconds=0.5):
        """True when no message arrives within `seconds`."""
        try:
            self.receive(timeout=seconds)
            return False
        except socket.timeout:
            return True

    def closed_by_peer(self, timeout=5):
        self.sock.settimeout(timeout)
        try:
            while True:
                if not self.sock.recv(4096):
                    return True
        except (ConnectionResetError, BrokenPipeError):
            return True
        except socket.timeout:
            return False

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
        library = json.load(f)  # {"songs": [{name, artist, album, track}], "playlist": name}
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
    for e in in_playlist:
        known = next(k for k in library["songs"] if k["name"] == e["name"])
        check(e["trackNumber"] == known.get("track", 0), "track number of %r" % e)
        check(e["discNumber"] == 0 or e["discNumber"] == known.get("disc", 0), "disc of %r" % e)
        check(("artist" in e) == bool(known.get("artist")), "artist key alone: %r" % e)
        check(("album" in e) == bool(known.get("album")), "album key alone: %r" % e)
    check(ask("getSongsForPlaylist", playlistID=424242)["songs"] == [], "unknown playlist")

    artists = {k["artist"] for k in library["songs"] if k.get("artist")}
    albums = {k["album"] for k in library["songs"] if k.get("album")}
    check(set(ask("getArtists")["artists"]) == artists, "artists")
    check(set(ask("getAlbums")["albums"]) == albums, "albums")
    for artist in artists:
        mine = [k for k in library["songs"] if k.get("artist") == artist]
        own_albums = {k["album"] for k in mine if k.get("album")}
        check(set(ask("getAlbumsForArtist", artist=artist)["albums"]) == own_albums,
              "albums of " + artist)
        reply = ask("getArtistHasMultipleAlbums", artist=artist)
        check(reply == {"artist": artist, "hasMultipleAlbums": len(own_albums) >= 2},
              "multiple albums of %s: %r" % (artist, reply))
        listed = ask("getSongsForArtist", artist=artist)["songs"]
        tracks = [next(k for k in mine if k["name"] == e["name"]).get("track", 0) for e in listed]
        check(tracks == sorted(tracks) and len(listed) == len(mine), "by track: %r" % listed)
        check(all(set(e) == {"songID", "name"} for e in listed), "short entries: %r" % listed)
    for album in albums:
        mine = [k for k in library["songs"] if k.get("album") == album]
        listed = ask("getSongsForAlbum", album=album)["songs"]
        tracks = [next(k for k in mine if k["name"] == e["name"]).get("track", 0) for e in listed]
        check(tracks == sorted(tracks) and len(listed) == len(mine), "album by track: %r" % listed)
    check(ask("getArtistHasMultipleAlbums") == {}, "no artist: nothing but the echo")
    check(ask("getSongsForArtist", artist="No Such Artist")["songs"] == [], "unknown artist")

    search = library["search"]
    result = ask("getResultsOfSearch", searchString=search["string"])
    check(result == search["expect"] or _search_matches(result, search["expect"], ids),
          "search %r: %r" % (search["string"], result))
    check(ask("getResultsOfSearch", searchString="zzzz no hit zzzz") == {}, "no hit: only the echo")

    # Time stamps.
    for command in ("getSongsLastModification", "getPlaylistsLastModification"):
        stamp = ask(command)["lastModification"]
        check(isinstance(stamp, float) and stamp > 6e8, "%s is a recent double: %r" % (command, stamp))
    stamp = ask("getPlaylistLastModification", playlistID=playlist_id)["lastModification"]
    check(isinstance(stamp, float) and stamp > 6e8, "playlist stamp: %r" % stamp)
    check(ask("getPlaylistLastModification", playlistID=424242) == {"lastModification": 0.0},
          "unknown playlist stamp")

    # Settings: each change of dim or mute is pushed; the volume is not.
    c.send({"command": "dim", "value": True})
    push = c.receive()
    check(is_status_push(push) and push["dim"] is True, "dim pushes: %r" % push)
    c.send({"command": "dim"})
    push = c.receive()
    check(is_status_push(push) and push["dim"] is False, "dim back to its default: %r" % push)
    c.send({"command": "mute", "value": True})
    push = c.receive()
    check(is_status_push(push) and push["mute"] is True, "mute pushes: %r" % push)
    c.send({"command": "mute", "value": False})
    check(c.receive()["mute"] is False, "mute off")
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
    c.send({"command": "previous"})
    wait_push(lambda s: True, "previous pushes the status")
    c.send({"command": "next"})
    wait_push(lambda s: s.get("name") == order[1], "next moves on")
    c.send({"command": "play"})
    wait_push(lambda s: s["isPlaying"] is True, "play toggles back")
    c.send({"command": "play"})
    wait_push(lambda s: s["isPlaying"] is False, "and pauses again")

    # What no table entry names is answered by nothing, and the connection stays.
    c.send({"command": "stop", "target": 1})
    c.send({"command": "remote_getSongs", "target": 2})
    c.send({"target": 3})
    check(c.expect_nothing(), "unknown commands get no reply")
    check(ask("getSongsLastModification")["lastModification"] > 0, "still served")
    c.close()
    print("session ok")


def _search_matches(result, expect, ids):
    """The expectation names songs by name; the reply has their IDs too."""
    if set(result) != set(expect):
        return False
    for key in ("artists", "albums"):
        if key in expect and result[key] != expect[key]:
            return False
    if "songs" in expect:
        names = [e.get("name") for e in result["songs"]]
        if names != expect["songs"]:
            return False
        for e in result["songs"]:
            if e["songID"] != ids.get(e["name"]):
                return False
    return True


def hold(port):
    c = Client(port)
    first = c.receive()
    check(is_status_push(first), "status first: %r" % first)
    print("connected", flush=True)
    sys.stdin.readline()
    c.close()


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


def _deep(depth):
    value = "bottom"
    for _ in range(depth):
        value = [value]
    return value


def hostile(port):
    def served():
        c = Client(port)
        status = c.receive()
        check(is_status_push(status), "a good client gets its status: %r" % status)
        c.send({"command": "getCurrentStatus", "target": "t"})
        reply = c.receive()
        check(reply.get("target") == "t", "and its replies: %r" % reply)
        return c

    cases = [
        ("giant length", struct.pack(">I", 0x7FFFFFFF) + b"x" * 100, True),
        ("just over 16 MiB", struct.pack(">I", 16 * 1024 * 1024 + 1), True),
        ("garbage payload", struct.pack(">I", 12) + b"not a plist!", True),
        ("plist that is no keyed archive",
         _frame(plistlib.dumps({"command": "play"}, fmt=plistlib.FMT_BINARY)), True),
        ("array root", _frame(archive(["command", "play"])), True),
        ("string root", _frame(archive("getSongs")), True),
        ("deep nesting", _frame(archive({"command": "getSongs", "target": _deep(2000)})), True),
        # Far larger than any request: refused before it costs memory.
        ("a request of 1.3 MB", _frame(archive({"command": "getSongs", "x": list(range(60000))})), True),
        ("truncated frame", struct.pack(">I", 1000) + b"\x00" * 10, False),
        ("truncated length", b"\x00\x00", False),
    ]
    for name, data, dropped in cases:
        c = Client(port)
        check(is_status_push(c.receive()), name + ": status first")
        c.send_raw(data)
        if dropped:
            check(c.closed_by_peer(), name + ": the client is dropped")
        c.close()
        served().close()

    # Wrong argument types and unknown commands: no harm, the connection stays.
    c = served()
    odd = [
        {"command": "getSongsForPlaylist", "playlistID": "x"},
        {"command": "getSongsForArtist", "artist": [1, 2]},
        {"command": "position", "value": {"a": 1}},
        {"command": "dim", "value": "yes"},
        {"command": "playSong", "songID": [], "playlistID": 1.5e300},
        {"command": 17},
        {"command": ["getSongs"]},
        {"command": "x" * 100000},
        {"command": "getResultsOfSearch", "searchString": {"nested": ["deep"]}},
    ]
    for request in odd:
        c.send(dict(request, target="odd"))
    c.send({"command": "getCurrentStatus", "target": "last"})
    seen = []
    while True:
        reply = c.receive()
        if reply.get("target") == "last":
            break
        if not is_status_push(reply):
            seen.append(reply)
    for reply in seen:
        check(reply.get("target") == "odd", "odd replies are plain replies: %r" % reply)
    c.close()
    served().close()
    print("hostile ok")


def _frame(payload):
    return struct.pack(">I", len(payload)) + payload


def request(port, text):
    c = Client(port)
    c.receive()
    message = json.loads(text)
    message.setdefault("target", "req")
    c.send(message)
    while True:
        reply = c.receive()
        if reply.get("target") == message["target"]:
            break
    print(json.dumps(reply, default=repr, sort_keys=True))


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    scenario, port = argv[1], int(argv[2])
    try:
        if scenario == "session":
            session(port, argv[3])
        elif scenario == "hold":
            hold(port)
        elif scenario == "refused":
            refused(port)
        elif scenario == "hostile":
            hostile(port)
        elif scenario == "request":
            request(port, argv[3])
        else:
            print("unknown scenario " + scenario, file=sys.stderr)
            return 2
    except (Failure, Closed, OSError, ValueError, KeyError) as e:
        print("%s failed: %s: %s" % (scenario, type(e).__name__, e), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
