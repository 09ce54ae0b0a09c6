#include "NetTestSupport.h"

#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace NetTestSupport {
namespace {

// Written from the archiver's documented layout, not from our code, so that it checks us.
const char toolSource[] = R"PY(
import json, plistlib, socket, struct, sys, time


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


def unarchive(data):
    top = plistlib.loads(data)
    if top.get("$archiver") != "NSKeyedArchiver" or top.get("$version") != 100000:
        raise ValueError("not a keyed archive")
    objects = top["$objects"]
    if objects[0] != "$null":
        raise ValueError("$objects does not start with $null")

    def value(ref):
        if not isinstance(ref, plistlib.UID) or ref.data == 0:
            raise ValueError("bad reference %r" % (ref,))
        o = objects[ref.data]
        if isinstance(o, dict):
            cls = objects[o["$class"].data]
            name = cls["$classname"]
            chain = cls["$classes"]
            if chain[0] != name or chain[-1] != "NSObject":
                raise ValueError("class chain %r" % (chain,))
            if name in ("NSDictionary", "NSMutableDictionary"):
                keys = [value(k) for k in o["NS.keys"]]
                if not all(isinstance(k, str) for k in keys):
                    raise ValueError("key not a string")
                vals = [value(x) for x in o["NS.objects"]]
                if len(keys) != len(vals):
                    raise ValueError("keys and objects differ")
                return dict(zip(keys, vals))
            if name in ("NSArray", "NSMutableArray"):
                return [value(x) for x in o["NS.objects"]]
            if name in ("NSString", "NSMutableString"):
                return o["NS.string"]
            raise ValueError("class " + name)
        if isinstance(o, (list, plistlib.UID)):
            raise ValueError("bare container")
        return o

    return value(top["$top"]["root"])


class StringRecord(str):
    """A string archived as a record with NS.string, as mutable strings are."""
    chain = ["NSMutableString", "NSString"]


class PlainStringRecord(StringRecord):
    chain = ["NSString"]


class Archiver:
    """Lays objects out as the platform's archiver does: one object per identity, the
    container before its contents, class records shared and written after first use."""

    def __init__(self, mutable):
        self.mutable = mutable
        self.objects = ["$null"]
        self.classes = {}
        self.seen = {}
        self.keep = []

    def class_ref(self, chain):
        name = chain[0]
        if name not in self.classes:
            self.objects.append({"$classname": name, "$classes": chain + ["NSObject"]})
            self.classes[name] = plistlib.UID(len(self.objects) - 1)
        return self.classes[name]

    def ref(self, v):
        key = (type(v), id(v))
        if key in self.seen:
            return self.seen[key]
        self.keep.append(v)
        at = len(self.objects)
        self.objects.append(None)
        uid = plistlib.UID(at)
        self.seen[key] = uid
        if isinstance(v, dict):
            keys = [self.ref(k) for k in v.keys()]
            vals = [self.ref(x) for x in v.values()]
            chain = ["NSMutableDictionary", "NSDictionary"] if self.mutable else ["NSDictionary"]
            self.objects[at] = {"NS.keys": keys, "NS.objects": vals, "$class": self.class_ref(chain)}
        elif isinstance(v, list):
            vals = [self.ref(x) for x in v]
            chain = ["NSMutableArray", "NSArray"] if self.mutable else ["NSArray"]
            self.objects[at] = {"NS.objects": vals, "$class": self.class_ref(chain)}
        elif isinstance(v, StringRecord):
            self.objects[at] = {"NS.string": str(v), "$class": self.class_ref(v.chain)}
        else:
            self.objects[at] = v
        return uid

    def archive(self, root):
        top = self.ref(root)
        return plistlib.dumps({"$archiver": "NSKeyedArchiver", "$version": 100000,
                               "$top": {"root": top}, "$objects": self.objects},
                              fmt=plistlib.FMT_BINARY)


def archive(root, mutable=True):
    return Archiver(mutable).archive(root)


def plain(v):
    if isinstance(v, dict):
        return {k: plain(x) for k, x in v.items()}
    if isinstance(v, list):
        return [plain(x) for x in v]
    if isinstance(v, str):
        return str(v)
    return v


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
        "request": (True, {"command": "getCurrentStatus"}),
    }
    for case, (mutable, root) in cases.items():
        with open(folder + "/" + case + ".archive", "wb") as f:
            f.write(archive(root, mutable))
        with open(folder + "/" + case + ".json", "w") as f:
            json.dump(typed(plain(root)), f)


def frame(payload):
    return struct.pack(">I", len(payload)) + payload


def recv_exact(sock, n):
    data = b""
    while len(data) < n:
        chunk = sock.recv(n - len(data))
        if not chunk:
            raise EOFError("connection closed after %d of %d bytes" % (len(data), n))
        data += chunk
    return data


def read_message(sock):
    (length,) = struct.unpack(">I", recv_exact(sock, 4))
    return unarchive(recv_exact(sock, length))


def connect(port):
    sock = socket.create_connection(("127.0.0.1", port), timeout=20)
    sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return sock


def expect_reply(sock, n):
    reply = read_message(sock)
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
    sock = connect(port)
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


main()
)PY";

} // namespace

QString pythonTool()
{
    static const QString path = [] {
        const QString p = TestEnvironment::makeTempDir(QStringLiteral("python")) +
                          QStringLiteral("/quivera_net_tool.py");
        QFile f(p);
        if (f.open(QIODevice::WriteOnly))
            f.write(toolSource);
        return p;
    }();
    return path;
}

QVariant fromTyped(const QJsonValue &value)
{
    const QJsonArray pair = value.toArray();
    const QString tag = pair.at(0).toString();
    const QJsonValue v = pair.at(1);
    if (tag == QLatin1String("s"))
        return v.toString();
    if (tag == QLatin1String("b"))
        return v.toBool();
    if (tag == QLatin1String("r"))
        return v.toString().toDouble();
    if (tag == QLatin1String("x"))
        return QByteArray::fromHex(v.toString().toLatin1());
    if (tag == QLatin1String("i")) {
        bool ok = false;
        const qlonglong i = v.toString().toLongLong(&ok);
        if (ok)
            return i;
        return v.toString().toULongLong();
    }
    if (tag == QLatin1String("a")) {
        QVariantList list;
        for (const QJsonValue &item : v.toArray())
            list.append(fromTyped(item));
        return list;
    }
    if (tag == QLatin1String("d")) {
        QVariantMap map;
        const QJsonObject obj = v.toObject();
        for (auto it = obj.begin(); it != obj.end(); ++it)
            map.insert(it.key(), fromTyped(it.value()));
        return map;
    }
    ADD_FAILURE() << "unknown tag " << tag.toStdString();
    return {};
}

int runTool(const QStringList &args, QByteArray *output, int timeoutMs)
{
    return runServing(QStringLiteral("python3"), QStringList{pythonTool()} + args, output,
                      timeoutMs);
}

} // namespace NetTestSupport
