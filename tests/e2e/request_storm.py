#!/usr/bin/env python3
"""Processes that ask for reloads and, before these are done, fork, exec, end or are killed.

usage: request_storm.py PORT COUNT"""

import os
import random
import signal
import socket
import struct
import sys
import threading

NETLINK_USERSOCK = 2


def send(*words, text=b""):
    payload = struct.pack(f"<{len(words)}I", *words) + text
    link = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_USERSOCK)
    link.sendto(struct.pack("<IHHII", 16 + len(payload), 18, 0, 0, 0) + payload, (int(sys.argv[1]), 0))


def reload():
    send(1, 0x400)


def be_killed():
    os.kill(os.getpid(), signal.SIGKILL)


def leave_a_child():
    if os.fork() == 0:
        reload()
        os._exit(0)
    be_killed()


def exec_something():
    try:
        os.execv("/nonexistent", ["nonexistent"])
    except OSError:
        os._exit(1)


def end_from_a_thread():
    thread = threading.Thread(target=lambda: (reload(), os._exit(0)))
    thread.start()
    thread.join()


def main():
    ends = [lambda: os._exit(0), be_killed, leave_a_child, exec_something, end_from_a_thread]
    random.seed(1)
    children = []
    for i in range(int(sys.argv[2])):
        child = os.fork()
        if child == 0:
            reload()
            send(2, os.getpid(), 1, text=b"bob\0")
            ends[i % len(ends)]()
        children.append(child)
        if len(children) == 15:
            for child in children:
                if random.random() < 0.3:
                    os.kill(child, signal.SIGKILL)
                os.waitpid(child, 0)
            children.clear()
    print("done")


main()
