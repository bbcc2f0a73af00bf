#!/usr/bin/env python3
"""policy.py ROOT: writes the policy of the guest whose file tree is below ROOT."""

import base64
import hashlib
import pathlib
import sys

root = pathlib.Path(sys.argv[1])
policy = root / "etc/sorvanic"


def key(program):
    words = hashlib.md5((root / program).read_bytes()).digest()
    return bytes(words[i] ^ words[i + 4] ^ words[i + 8] ^ words[i + 12] for i in range(4))


def listing(name, *programs):
    (policy / name).write_bytes(b"".join(map(key, programs)))


def encoded(name, text):
    (policy / name).write_bytes(base64.b64encode(text.encode()))


listing("whitelist", "bin/busybox", "bin/try", "usr/sorvanic/sorvagent", "opt/sorvall", "opt/script", "opt/good_script")
listing("blacklist", "tools/black")
(policy / "workdir").write_text("/tools\n")
encoded("statlabel", "3\n")
encoded("installlabel", "2\n")
encoded("modllabel", "2222\n")
encoded("dirctl", "/data\n/labels\n")
encoded("appevp", "/data/open:try:4\n")
encoded("dac", "/data/alice:alice:6\n")
encoded("sublabel", "alice:0:3:1:1,2,0,0,0,0,0,0\n")
encoded("objlabel", "/labels/low:0:2:2:1,2,0,0,0,0,0,0\n")
