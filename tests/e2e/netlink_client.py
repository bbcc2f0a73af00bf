#!/usr/bin/env python3
"""Speaks to a session over netlink as any program would: only bytes, nothing of ours.

usage: netlink_client.py PORT STEP...

    helo quit install-end shell-reset      one request each
    reload:MASK                            a reload request
    login:USER[:MODE]                      a login of this very process
    read:COUNT                             waits for that many messages, at most 10 s for each
    drain                                  reads until nothing has come for half a second
    reload-while:FILE:MASK                 makes the file and reloads until somebody removes it
    copy:FROM:TO                           copies a file
    run:PROGRAM[:MASK]                     runs it as a child, which asks for a reload first: its exit
                                           status, or the error of its exec

Every message and result that is read is printed as one JSON object on a line of its own."""

import json
import os
import shutil
import socket
import struct
import sys

NETLINK_USERSOCK = 2
HEADER = struct.Struct("<IHHII")
KINDS = {2: "untp", 3: "faau", 4: "pcau", 6: "plau", 8: "syst"}


def request(kind, payload=b""):
    return HEADER.pack(16 + len(payload), kind, 0, 0, 0) + payload


def text(field):
    return field.split(b"\0", 1)[0].decode("latin-1")


def decode(message):
    length, kind, flags, sequence, port = HEADER.unpack_from(message)
    payload = message[16:]
    head = {"bytes": len(message), "length": length, "type": kind, "sequence": sequence,
            "to_me": port == os.getpid()}
    if kind == 22:
        return head
    head["kind"] = KINDS[flags]
    if head["kind"] == "untp":
        key, path, process, reserved, path_class = struct.unpack("<I1024s1024sII", payload)
        return head | {"key": f"{key:08x}", "path": text(path), "process": text(process), "reserved": reserved,
                       "class": path_class}
    if head["kind"] in ("faau", "pcau"):
        path, process, user, decision, path_class = struct.unpack("<1024s1024s32sII", payload)
        return head | {"path": text(path), "process": text(process), "user": text(user), "decision": decision,
                       "class": path_class}
    if head["kind"] == "plau":
        user, mask, result = struct.unpack("<32sII", payload)
        return head | {"user": text(user), "mask": mask, "result": result}
    requested, current = struct.unpack("<II", payload)
    return head | {"requested": requested, "current": current}


def run(program, before):
    child = os.fork()
    if child == 0:
        before()
        try:
            os.execv(program, [program])
        except OSError as error:
            os._exit(error.errno)
    print(json.dumps({"run": os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])}), flush=True)


def drain(link):
    link.settimeout(0.5)
    try:
        while True:
            print(json.dumps(decode(link.recv(65536))), flush=True)
    except TimeoutError:
        link.settimeout(10)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    port = int(sys.argv[1])
    link = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_USERSOCK)
    link.bind((os.getpid(), 0))
    link.settimeout(10)
    def reload(mask):
        link.sendto(request(18, struct.pack("<II", 1, int(mask, 0))), (port, 0))

    plain = {"helo": 16, "quit": 17, "install-end": 23, "shell-reset": 26}
    for step in sys.argv[2:]:
        name, _, rest = step.partition(":")
        if name == "read":
            for _ in range(int(rest)):
                print(json.dumps(decode(link.recv(65536))), flush=True)
        elif name == "drain":
            drain(link)
        elif name == "copy":
            shutil.copyfile(*rest.split(":"))
        elif name == "run":
            program, _, mask = rest.partition(":")
            run(program, lambda: mask and reload(mask))
        elif name == "reload":
            reload(rest)
        elif name == "reload-while":
            path, _, mask = rest.partition(":")
            open(path, "w").close()
            while os.path.exists(path):
                reload(mask)
        elif name == "login":
            user, _, mode = rest.partition(":")
            payload = struct.pack("<III", 2, os.getpid(), int(mode or 0)) + user.encode() + b"\0"
            link.sendto(request(18, payload), (port, 0))
        else:
            link.sendto(request(plain[name]), (port, 0))


main()
