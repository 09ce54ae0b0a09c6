#!/usr/bin/env python3
"""Keyed archives written by Python's plistlib, an encoder that is not ours: objects in another
order, integers and UIDs in other widths, shared strings.  Usage: make_plistlib_seeds.py DIR"""
import os
import plistlib
import sys
from plistlib import UID


def archive(objects):
    return plistlib.dumps({"$archiver": "NSKeyedArchiver", "$version": 100000,
                           "$top": {"root": UID(1)}, "$objects": ["$null"] + objects},
                          fmt=plistlib.FMT_BINARY)


DICT = {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]}
MDICT = {"$classname": "NSMutableDictionary", "$classes": ["NSMutableDictionary", "NSDictionary", "NSObject"]}
ARRAY = {"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]}
DATA = {"$classname": "NSMutableData", "$classes": ["NSMutableData", "NSData", "NSObject"]}

SEEDS = {
    # {"command": "setVolume", "volume": 0.5, "target": 2**63}
    "request": [
        {"NS.keys": [UID(2), UID(3), UID(4)], "NS.objects": [UID(5), UID(6), UID(7)], "$class": UID(8)},
        "command", "volume", "target", "setVolume", 0.5, 2**63, DICT,
    ],
    # {"songs": [{"name": "a"}, {"name": "a"}]} with the inner dictionary shared
    "shared": [
        {"NS.keys": [UID(2)], "NS.objects": [UID(3)], "$class": UID(4)},
        "songs",
        {"NS.objects": [UID(5), UID(5)], "$class": UID(8)},
        MDICT,
        {"NS.keys": [UID(6)], "NS.objects": [UID(7)], "$class": UID(9)},
        "name", "a", ARRAY, DICT,
    ],
    # {"blob": NSMutableData, "flag": True, "n": -1}
    "data": [
        {"NS.keys": [UID(2), UID(3), UID(4)], "NS.objects": [UID(5), UID(7), UID(8)], "$class": UID(9)},
        "blob", "flag", "n",
        {"NS.data": b"\x00\x01\x02\xff", "$class": UID(6)},
        DATA, True, -1, DICT,
    ],
}

out = sys.argv[1]
os.makedirs(out, exist_ok=True)
for name, objects in SEEDS.items():
    with open(os.path.join(out, "plistlib-" + name), "wb") as f:
        f.write(archive(objects))
