"""The network tests' peer: writes archives for our reader (build), reads ours (decode), and
plays clients of a server (client PORT SCENARIO)."""

import json
import os
import socket
import struct
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support"))
from keyed_archive import PlainStringRecord, StringRecord, archive, frame, read_frame, unarchive  # noqa: E402


def typed(v):
    if isinstance(v, bool):
        return ["b", v]
    if isinstance(v, int):
        return ["i", str(v)]
    if isinstance(v, float):
        return ["r", repr(v)]
    if isinstance(v, str):
        return ["s", str(v)]
    if isinstance(v, bytes):
        return ["x", v.hex()]
    if isinstance(v, list):
        return ["a", [typed(x) for x in v]]
    if isinstance(v, dict):
        return ["d", {k: typed(x) for k, x in v.items()}]
    raise TypeError(type(v))


def build(folder):
    song = {"songID": 5, "name": "Hyperballad", "artist": StringRecord("Björk")}
    name = "name"
    cases = {
        "mutable": (True, {
            "command": "getResultsOfSearch",
            "searchString": StringRecord("björk"),
            "target": 7,
            "action": StringRecord("x"),
            "list": [1, -2, 2 ** 40, -(2 ** 63), 2 ** 64 - 1, 0.25, True, False, "", "naïve ☃ 🎵"],
            "nested": {"a": {"b": [[], {}]}, "$class": "a key that looks like a coder key"},
            "data": b"\x00\x01\xff",
        }),
        "shared": (True, {"songs": [song, song, song], "again": song, name: name, "n": [name, name]}),
        "immutable": (False, {"command": PlainStringRecord("getSongs"), "songs": [song, song],
                              "numbers": [0, 1, 1.0, True]}),
    }
    for case, (mutable, root) in cases.items():
        with open(folder + "/" + case + ".archive", "wb") as f:
            f.write(archive(root, mutable))
        with open(folder + "/" + case + ".json", "w") as f:
            json.dump(typed(root), f)


def expect_reply(sock, n):
    reply = read_frame(sock)
    if reply.get("n") != n or reply.get("reply") is not True:
        raise AssertionError("reply %r for message %d" % (reply, n))


def expect_dropped(sock):
    sock.settimeout(10)
    try:
        data = sock.recv(1)
    except ConnectionResetError:
        return
    except socket.timeout:
        raise AssertionError("the server kept the connection")
    if data:
        raise AssertionError("the server answered %r" % data)


def message(n):
    return frame(archive({"command": "echo", "n": n}))


def client(port, scenario, arg):
    sock = socket.create_connection(("127.0.0.1", port), timeout=20)
    sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    if scenario == "echo":
        n = 0
        for _ in range(3):
            sock.sendall(message(n)); expect_reply(sock, n); n += 1
        # One byte per segment.
        for b in message(n):
            sock.sendall(bytes([b])); time.sleep(0.0005)
        expect_reply(sock, n); n += 1
        # Every place a frame can be cut in two.
        for cut in range(1, len(message(n))):
            m = message(n)
            sock.sendall(m[:cut]); time.sleep(0.001); sock.sendall(m[cut:])
            expect_reply(sock, n); n += 1
        # Two frames in one segment, then a frame whose successor's length is cut.
        sock.sendall(message(n) + message(n + 1))
        expect_reply(sock, n); expect_reply(sock, n + 1); n += 2
        a, b = message(n), message(n + 1)
        sock.sendall(a + b[:2]); time.sleep(0.01); sock.sendall(b[2:])
        expect_reply(sock, n); expect_reply(sock, n + 1); n += 2
        print("echoed", n)
    elif scenario == "giant":
        sock.sendall(struct.pack(">I", int(arg)))
        expect_dropped(sock)
    elif scenario == "truncated":
        m = message(0)
        sock.sendall(m[: len(m) // 2])
    elif scenario == "garbage":
        sock.sendall(frame(b"\xff\x00garbage" * 8))
        expect_dropped(sock)
    elif scenario == "notdict":
        sock.sendall(frame(archive(["command", "echo"])))
        expect_dropped(sock)
    else:
        raise SystemExit("unknown scenario " + scenario)
    sock.close()


def main():
    cmd = sys.argv[1]
    if cmd == "decode":
        with open(sys.argv[2], "rb") as f:
            print(json.dumps(typed(unarchive(f.read()))))
    elif cmd == "build":
        build(sys.argv[2])
    elif cmd == "client":
        client(int(sys.argv[2]), sys.argv[3], sys.argv[4] if len(sys.argv) > 4 else None)
    else:
        raise SystemExit("unknown command " + cmd)


if __name__ == "__main__":
    main()
