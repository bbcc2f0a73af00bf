#!/usr/bin/env python3
"""Makes each call that can keep its caller waiting, once with a signal handler that has SA_RESTART and once with
one that has not, and hits it with a signal while it waits. After the handler has run, what the call waits for
comes about. Prints for each "NAME restart|plain: " and "interrupted", "done" (it was restarted), "failed"
(otherwise), or "hung"."""

import ctypes
import errno
import fcntl
import mmap
import os
import select
import shutil
import signal
import socket
import struct
import tempfile
import time

# Straight from the C library: Python repeats an interrupted call by itself.
libc = ctypes.CDLL(None, use_errno=True)
data = ctypes.create_string_buffer(1 << 16)
for_two_seconds = struct.pack("qq", 2, 0)
one_byte = struct.pack("Pq", ctypes.addressof(data), 1)
F_OFD_SETLKW = 38


class World:
    """What the calls wait for, made anew for each of them."""

    def __init__(self):
        with open("data", "wb") as file:
            file.truncate(8192)
        open("records", "w").close()
        self.pipe = os.pipe()
        self.full_pipe = os.pipe()
        os.set_blocking(self.full_pipe[0], False)
        fill(self.full_pipe[1])
        self.pair = socket.socketpair()
        self.full_pair = socket.socketpair()
        fill(self.full_pair[0].fileno())
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind("socket")
        self.listener.listen(1)
        self.master, self.terminal = os.openpty()
        os.mkfifo("fifo", 0o600)
        self.locked = os.open("locked", os.O_RDWR | os.O_CREAT, 0o600)
        fcntl.flock(self.locked, fcntl.LOCK_EX)
        self.events = libc.eventfd(0, 0)
        self.semaphores = libc.semget(0, 1, 0o600)
        self.messages = libc.msgget(0, 0o600)
        self.watched = libc.inotify_init()
        libc.inotify_add_watch(self.watched, b".", 0x100)  # IN_CREATE
        name = b"/sorvanic-test-%d" % os.getpid()
        self.queue = libc.mq_open(name, os.O_RDWR | os.O_CREAT, 0o600, struct.pack("8q", 0, 1, 8, 0, 0, 0, 0, 0))
        libc.mq_unlink(name)
        self.word = ctypes.c_int.from_buffer(mmap.mmap(-1, 4096))  # shared
        self.polled = struct.pack("ihh", self.pipe[0], select.POLLIN, 0)
        self.handled = os.pipe2(os.O_NONBLOCK)  # the handler writes to it
        ready = os.pipe()
        self.holder = os.fork()
        if self.holder == 0:
            lock_record(fcntl.F_SETLK)
            os.write(ready[1], b"l")
            signal.pause()
        os.read(ready[0], 1)
        self.child = 0  # of the caller


def fill(descriptor):
    os.set_blocking(descriptor, False)
    for size in 4096, 1:
        while libc.write(descriptor, data, size) > 0:
            pass
    os.set_blocking(descriptor, True)


def lock_record(command):
    return libc.fcntl(os.open("records", os.O_RDWR), command, struct.pack("hhqqi", fcntl.F_WRLCK, 0, 0, 0, 0))


def clock_nanosleep(_):
    error = libc.clock_nanosleep(1, 0, for_two_seconds, None)
    ctypes.set_errno(error)
    return -1 if error else 0


def read_timer(_):
    timer = libc.timerfd_create(1, 0)
    libc.timerfd_settime(timer, 0, struct.pack("qqqq", 0, 0, 2, 0), None)
    return libc.read(timer, data, 8)


def set_of(descriptor):
    return ctypes.create_string_buffer(struct.pack("Q", 1 << descriptor) + bytes(120))


def feed(w):
    os.write(w.pipe[1], b"x")


def drain_pipe(w):
    while libc.read(w.full_pipe[0], data, len(data)) > 0:
        pass


def drain_pair(w):
    while libc.recv(w.full_pair[1].fileno(), data, len(data), socket.MSG_DONTWAIT) > 0:
        pass


def nothing(_):
    """For what ends by itself: such calls are never restarted, or with the time that is left."""


# A call that waits, and what a process beside it does to end that.
CALLS = [
    ("read pipe", lambda w: libc.read(w.pipe[0], data, 1), feed),
    ("readv pipe", lambda w: libc.readv(w.pipe[0], one_byte, 1), feed),
    ("splice pipe",
     lambda w: libc.splice(w.pipe[0], None, os.open("spliced", os.O_RDWR | os.O_CREAT, 0o600), None, 1, 0), feed),
    ("write pipe", lambda w: libc.write(w.full_pipe[1], data, 4096), drain_pipe),
    ("writev pipe", lambda w: libc.writev(w.full_pipe[1], one_byte, 1), drain_pipe),
    ("sendfile pipe", lambda w: libc.sendfile(w.full_pipe[1], os.open("data", os.O_RDONLY), None, 4096), drain_pipe),
    ("read socket", lambda w: libc.read(w.pair[0].fileno(), data, 1), lambda w: w.pair[1].send(b"x")),
    ("recv socket", lambda w: libc.recv(w.pair[0].fileno(), data, 1, 0), lambda w: w.pair[1].send(b"x")),
    ("write socket", lambda w: libc.write(w.full_pair[0].fileno(), data, 4096), drain_pair),
    ("send socket", lambda w: libc.send(w.full_pair[0].fileno(), data, 4096, 0), drain_pair),
    ("accept", lambda w: libc.accept(w.listener.fileno(), None, None),
     lambda w: socket.socket(socket.AF_UNIX).connect("socket")),
    ("read terminal", lambda w: libc.read(w.terminal, data, len(data)), lambda w: os.write(w.master, b"line\n")),
    ("open fifo to read", lambda w: libc.open(b"fifo", os.O_RDONLY), lambda w: libc.open(b"fifo", os.O_WRONLY)),
    ("open fifo to write", lambda w: libc.open(b"fifo", os.O_WRONLY), lambda w: libc.open(b"fifo", os.O_RDONLY)),
    ("flock", lambda w: libc.flock(os.open("locked", os.O_RDWR), fcntl.LOCK_EX),
     lambda w: fcntl.flock(w.locked, fcntl.LOCK_UN)),
    ("record lock", lambda w: lock_record(fcntl.F_SETLKW), lambda w: os.kill(w.holder, signal.SIGTERM)),
    ("open file description lock", lambda w: lock_record(F_OFD_SETLKW), lambda w: os.kill(w.holder, signal.SIGTERM)),
    ("wait4", lambda w: libc.waitpid(w.child, None, 0), lambda w: os.kill(w.child, signal.SIGTERM)),
    ("waitid", lambda w: libc.waitid(1, w.child, data, 4), lambda w: os.kill(w.child, signal.SIGTERM)),
    ("nanosleep", lambda w: libc.nanosleep(for_two_seconds, None), nothing),
    ("clock_nanosleep", clock_nanosleep, nothing),
    ("poll", lambda w: libc.poll(w.polled, 1, -1), feed),
    ("ppoll", lambda w: libc.ppoll(w.polled, 1, None, None), feed),
    ("select", lambda w: libc.select(w.pipe[0] + 1, set_of(w.pipe[0]), None, None, None), feed),
    ("epoll_wait", lambda w: libc.epoll_wait(libc.epoll_create(1), data, 1, 2000), nothing),
    ("pause", lambda w: libc.pause(), nothing),
    ("sigtimedwait", lambda w: libc.sigtimedwait(struct.pack("16Q", 1 << (signal.SIGUSR2 - 1), *[0] * 15), None,
                                                 for_two_seconds), nothing),
    ("semop", lambda w: libc.semop(w.semaphores, struct.pack("Hhh", 0, -1, 0), 1), nothing),
    ("msgrcv", lambda w: libc.msgrcv(w.messages, data, 8, 0, 0), nothing),
    ("futex", lambda w: libc.syscall(202, ctypes.byref(w.word), 0, 0, None, None, 0),
     lambda w: libc.syscall(202, ctypes.byref(w.word), 1, 1, None, None, 0)),
    ("read eventfd", lambda w: libc.read(w.events, data, 8), lambda w: os.write(w.events, struct.pack("Q", 1))),
    ("read inotify", lambda w: libc.read(w.watched, data, len(data)), lambda w: open("appears", "w").close()),
    ("read timer", read_timer, nothing),
    ("mq_receive", lambda w: libc.mq_receive(w.queue, data, len(data), None), lambda w: libc.mq_send(w.queue, b"x", 1, 0)),
]


def wait_until_asleep(task):
    """Until it has been asleep for a while: then it waits in its call."""
    asleep = 0
    for _ in range(200):
        time.sleep(0.015)
        try:
            with open(f"/proc/{task}/stat") as file:
                asleep = asleep + 1 if ") S" in file.read() else 0
        except OSError:
            asleep = 0
        if asleep == 4:
            return


def make_call(call, restart, w, told):
    signal.signal(signal.SIGUSR1, lambda *_: None)
    signal.siginterrupt(signal.SIGUSR1, not restart)
    signal.set_wakeup_fd(w.handled[1])
    w.child = os.fork()
    if w.child == 0:
        signal.pause()
    os.write(told, struct.pack("i", w.child))
    result = call(w)
    os._exit(0 if result >= 0 else 1 if ctypes.get_errno() == errno.EINTR else 2)


def outcome_of(call, satisfy, restart):
    w = World()
    told = os.pipe()
    caller = os.fork()
    if caller == 0:
        make_call(call, restart, w, told[1])
    w.child = struct.unpack("i", os.read(told[0], 4))[0]
    wait_until_asleep(caller)
    os.kill(caller, signal.SIGUSR1)
    select.select([w.handled[0]], [], [], 2)
    satisfying = os.fork()
    if satisfying == 0:
        wait_until_asleep(caller)
        satisfy(w)
        os._exit(0)
    came = "hung"
    for _ in range(300):
        ended, status = os.waitpid(caller, os.WNOHANG)
        if ended == caller:
            came = ["done", "interrupted", "failed"][os.waitstatus_to_exitcode(status)]
            break
        time.sleep(0.02)
    for left in caller, satisfying, w.child, w.holder:
        libc.kill(left, signal.SIGKILL)
    libc.semctl(w.semaphores, 0, 0)
    libc.msgctl(w.messages, 0, None)
    return came


def try_all(directory):
    """Each call has a directory of its own; eight are tried at a time."""
    names = []
    for name, call, satisfy in CALLS:
        for restart in False, True:
            if len(names) >= 8:
                os.wait()
            names.append(f"{directory}/{len(names):03}")
            if os.fork() != 0:
                continue
            os.mkdir(names[-1])
            os.chdir(names[-1])
            came = outcome_of(call, satisfy, restart)
            with open("outcome", "w") as file:
                file.write(f"{name} {'restart' if restart else 'plain'}: {came}\n")
            os._exit(0)
    try:
        while True:
            os.wait()
    except ChildProcessError:
        pass
    for name in names:
        with open(name + "/outcome") as file:
            print(file.read(), end="")


place = tempfile.mkdtemp(dir=".")
try_all(os.path.abspath(place))
shutil.rmtree(place)
