"""Keyed archives (binary property lists with $archiver, $top, $objects and UIDs) written and
read with plistlib alone, from the archiver's documented layout rather than from our code, so
that they check ours. Shared by the tests' Python peers."""

import plistlib
import struct


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


def frame(payload):
    """A message on the wire: a 4-byte big-endian length, then the archive."""
    return struct.pack(">I", len(payload)) + payload


class Closed(EOFError):
    """The peer closed the connection before a whole frame arrived."""


def _read_exact(sock, n):
    data = b""
    while len(data) < n:
        chunk = sock.recv(n - len(data))
        if not chunk:
            raise Closed("connection closed after %d of %d bytes" % (len(data), n))
        data += chunk
    return data


def read_frame(sock):
    """The next message from `sock`, unarchived."""
    (length,) = struct.unpack(">I", _read_exact(sock, 4))
    return unarchive(_read_exact(sock, length))
