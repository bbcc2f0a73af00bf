#!/usr/bin/env python3
"""System calls at their edges, where a caller's limits, memory, locks and leases decide. Prints a line for each
case: what came of it. All that is made is in a directory of its own."""

import ctypes
import errno
import fcntl
import os
import resource
import shutil
import signal
import struct
import tempfile
import threading
import time

libc = ctypes.CDLL(None, use_errno=True)
libc.mmap.restype = ctypes.c_void_p
SETXATTR, GETXATTR, OPENAT2, PIDFD_SEND_SIGNAL = 188, 191, 437, 424


def syscall(number, *arguments):
    """Straight to the kernel: the C library reads some arguments itself."""
    return libc.syscall(ctypes.c_long(number),
                        *(ctypes.c_long(each) if isinstance(each, int) else each for each in arguments))


def tell(name, result):
    print(f"{name}: {result} {ctypes.get_errno() if result < 0 else 0}", flush=True)


def make_file(name, text="text"):
    with open(name, "w") as file:
        file.write(text)
    os.chmod(name, 0o700)


def apart(name, step):
    """In a process of its own, which a signal may end; its limits shall not be those of the output."""
    came_out, goes_in = os.pipe()
    child = os.fork()
    if child == 0:
        os.dup2(goes_in, 1)
        step()
        os._exit(0)
    os.close(goes_in)
    with open(came_out) as text:
        print(text.read(), end="")
    print(f"{name} ended {os.waitpid(child, 0)[1]:x}", flush=True)


def at_descriptor_limit():
    make_file("kept")
    resource.setrlimit(resource.RLIMIT_NOFILE, (16, 16))
    while libc.dup(0) >= 0:
        pass
    tell("open at the limit", libc.open(b"kept", os.O_RDONLY))
    tell("truncate at the limit", libc.open(b"kept", os.O_WRONLY | os.O_TRUNC))
    tell("create at the limit", libc.open(b"unmade", os.O_WRONLY | os.O_CREAT, 0o600))
    tell("size kept", os.stat("kept").st_size)
    tell("made", int(os.path.exists("unmade")))
    os.close(15)
    tell("below the limit", libc.open(b"kept", os.O_WRONLY | os.O_TRUNC))


def unreadable_arguments():
    page = libc.mmap(None, 4096, 3, 0x22, -1, 0)
    ctypes.memmove(page, b"directory", 9)
    libc.mprotect(ctypes.c_void_p(page), 4096, 0)
    os.mkdir("directory", 0o700)
    watches = libc.inotify_init()
    for name, number, *arguments in [
            ("open", 2, page, os.O_RDONLY), ("rmdir", 84, page), ("chdir", 80, page),
            ("watch", 254, watches, page, 0x100), ("execve", 59, page, 0, 0), ("settimeofday", 164, page, 0),
            ("clock_settime", 227, 0, page), ("adjtimex", 159, page)]:
        tell(name + " unreadable", syscall(number, *arguments))
    tell("attribute from nowhere", syscall(SETXATTR, b"directory", b"user.a", page, 5, 0))


def sizes():
    make_file("file")
    huge = 2**63 - 1
    tell("attribute of 2^63-1", syscall(SETXATTR, b"file", b"user.a", b"x", huge, 0))
    tell("attribute of 3 GB", syscall(SETXATTR, b"file", b"user.a", b"x", 3 << 30, 0))
    tell("openat2 of 2^63-1", syscall(OPENAT2, -100, b"file", b"x", huge))
    tell("attribute into 2^63-1", syscall(GETXATTR, b"file", b"user.none", ctypes.create_string_buffer(8), huge))


def bounded_names():
    """openat2 keeps a walk within bounds."""
    for name in ("in", "in/deep"):
        os.mkdir(name)
    make_file("in/file")
    make_file("outside")
    for name, target in [("up", "../outside"), ("root", os.path.abspath("outside")), ("deeper", "deep/../file"), ("none", "nothing"),
                         ("loop", "loop"), ("magic", "/proc/self/exe")]:
        os.symlink(target, "in/" + name)
    directory = os.open("in", os.O_RDONLY)
    names = ("file deep/../file deep/../../in/file ../outside up root deeper none loop magic none/x . .. deep/ "
             "file/x").split() + [os.path.abspath("in/file")]
    for bounds in (0x1, 0x2, 0x4, 0x8, 0x10, 0x40, 0x8 | 0x4, 0x8 | 0x10):
        for flags in (os.O_RDONLY, os.O_PATH, os.O_RDWR | os.O_CREAT, os.O_RDWR | os.O_CREAT | os.O_EXCL,
                      os.O_RDWR | os.O_TMPFILE):
            for name in names:
                mode = 0o600 if flags & (os.O_CREAT | os.O_TMPFILE) == os.O_CREAT or flags & 0x400000 else 0
                how = struct.pack("3Q", flags, mode, bounds)
                opened, error = -1, errno.EAGAIN  # also when anybody renames anything on this machine
                while opened < 0 and error == errno.EAGAIN:
                    opened = syscall(OPENAT2, directory, name.encode(), how, 24)
                    error = ctypes.get_errno() if opened < 0 else 0
                if opened >= 0:
                    os.close(opened)
                made = os.path.lexists("in/nothing") or os.path.exists("nothing")
                for left in ("in/nothing", "nothing"):
                    if os.path.lexists(left):
                        os.unlink(left)
                # A session does not bound walks through proc, nor does it make files behind links then.
                if name == "magic" or name in ("none", "root") and flags & os.O_CREAT:
                    continue
                print(f"bounds {bounds:x} {flags:x} {name.replace(place, '')}: {min(opened, 0)} {error} {made}")


def later_calls():
    """Calls and arguments that came with later kernels."""
    make_file("file")
    os.symlink("file", "link")
    value = ctypes.create_string_buffer(b"value", 16)
    there = ctypes.create_string_buffer(16)

    def arguments(buffer, size, flags=0):
        return struct.pack("Q2I", ctypes.addressof(buffer), size, flags)

    file = os.open("file", os.O_RDWR)
    here, nofollow, empty = -100, 0x100, 0x1000
    for name, number, *passed in [
            ("set", 463, here, b"file", 0, b"user.a", arguments(value, 5), 16),
            ("set again", 463, here, b"file", 0, b"user.a", arguments(value, 5, 1), 16),
            ("set longer struct", 463, here, b"file", 0, b"user.a", arguments(value, 5) + b"\1", 17),
            ("set no struct", 463, here, b"file", 0, b"user.a", arguments(value, 5), 8),
            ("set by descriptor", 463, file, b"", empty, b"user.b", arguments(value, 5), 16),
            ("set without a name", 463, file, 0, empty, b"user.c", arguments(value, 5), 16),
            ("set of the link", 463, here, b"link", nofollow, b"user.a", arguments(value, 5), 16),
            ("get", 464, here, b"link", 0, b"user.a", arguments(there, 16), 16),
            ("get with flags", 464, here, b"link", 0, b"user.a", arguments(there, 16, 1), 16),
            ("get size", 464, here, b"link", 0, b"user.a", arguments(there, 0), 16),
            ("remove", 466, file, b"", empty, b"user.b"), ("remove again", 466, file, b"", empty, b"user.b"),
            ("bad flags", 466, file, b"", 0x40000000, b"user.b"),
            ("attributes", 469, here, b"file", bytes(24), 24, 0),
            ("attributes of nothing", 469, here, b"none", bytes(24), 24, 0),
            ("attributes short", 469, here, b"file", bytes(24), 20, 0),
            ("attributes by descriptor", 469, file, 0, bytes(24), 24, empty),
            ("signal to own thread", PIDFD_SEND_SIGNAL, -10000, 0, 0, 0),
            ("signal to own process", PIDFD_SEND_SIGNAL, -10001, 0, 0, 0),
            ("signal to no descriptor", PIDFD_SEND_SIGNAL, -10002, 0, 0, 0)]:
        tell(name, syscall(number, *passed))
    tell(there.value.decode(), len(os.listxattr("file")))


def namespace_arguments():
    tell("unshare nothing known", libc.unshare(0x1))
    tell("setns no descriptor", libc.setns(77, 0))
    tell("setns no namespace", libc.setns(0, 0x40000000))
    tell("setns other namespace", libc.setns(os.open("/proc/self/ns/net", os.O_RDONLY), 0x4000000))


def failing_unshare():
    """Another thread shares its directory and mask when unshare has failed."""
    os.umask(0o22)
    os.mkdir("elsewhere", 0o700)
    make_file("elsewhere/here", "x")
    files, mounts, thread, unknown = 0x200, 0x20000, 0x10000, 0x1
    alone = threading.Thread(target=lambda: tell("unshare", libc.unshare(files | mounts | thread | unknown)))
    alone.start()
    alone.join()
    moved = threading.Event()

    def share():
        moved.wait()
        os.close(os.open("masked", os.O_WRONLY | os.O_CREAT, 0o666))
        tell("relative name", min(libc.open(b"here", os.O_RDONLY), 0))

    sharing = threading.Thread(target=share)
    sharing.start()
    os.umask(0o77)
    os.chdir("elsewhere")
    moved.set()
    sharing.join()
    tell("mask", os.stat("masked").st_mode & 0o777)


def locks():
    """Each comes free when its file is closed, however often."""
    for name, times, command, argument in [("flock", 3000, None, None),
                                           ("lock", 1000, 37, struct.pack("hhqqi", fcntl.F_WRLCK, 0, 0, 0, 0)),
                                           ("lease", 300, fcntl.F_SETLEASE, fcntl.F_WRLCK)]:
        refused = 0
        for _ in range(times):
            file = os.open("locked", os.O_RDWR | os.O_CREAT, 0o600)
            refused += (libc.fcntl(file, command, argument) if command else libc.flock(file, 6)) != 0
            os.close(file)
        tell(name + " refused", refused)


def leased_open():
    """An open that waits for a lease's holder is interrupted by a signal."""
    make_file("leased")
    ready = os.pipe()
    holder = os.fork()
    if holder == 0:
        signal.signal(signal.SIGIO, lambda *_: None)
        held = libc.fcntl(os.open("leased", os.O_RDONLY), fcntl.F_SETLEASE, fcntl.F_RDLCK) == 0
        os.write(ready[1], b"y" if held else b"n")
        while True:
            signal.pause()
    tell("lease held", int(os.read(ready[0], 1) == b"y"))
    tell("open without waiting", libc.open(b"leased", os.O_WRONLY | os.O_NONBLOCK))
    signal.signal(signal.SIGALRM, lambda *_: None)
    for call in (lambda: libc.open(b"leased", os.O_WRONLY), lambda: libc.open(b"leased", os.O_WRONLY | os.O_TRUNC),
                 lambda: libc.truncate(b"leased", 1)):
        signal.setitimer(signal.ITIMER_REAL, 0.1, 0.1)
        tell("with a signal", call())
    signal.setitimer(signal.ITIMER_REAL, 0)
    os.kill(holder, signal.SIGKILL)
    os.waitpid(holder, 0)
    tell("open without lease", min(libc.open(b"leased", os.O_WRONLY), 0))


def stopped_and_ended():
    """A call that waits does not keep its process from being stopped, continued and ended."""
    make_file("held")
    os.mkfifo("fifo")
    holder = os.open("held", os.O_RDWR)
    fcntl.flock(holder, fcntl.LOCK_EX)
    fcntl.fcntl(holder, fcntl.F_OFD_SETLK, struct.pack("hhqqi", fcntl.F_WRLCK, 0, 0, 0, 0))

    def lock(command, argument):
        return libc.fcntl(os.open("held", os.O_RDWR), command, argument)

    for name, call in {
            "fifo": lambda: libc.open(b"fifo", os.O_RDONLY),
            "flock": lambda: libc.flock(os.open("held", os.O_RDWR), fcntl.LOCK_EX),
            "lock": lambda: lock(fcntl.F_OFD_SETLKW, struct.pack("hhqqi", fcntl.F_WRLCK, 0, 0, 0, 0))}.items():
        child = os.fork()
        if child == 0:
            signal.signal(signal.SIGTERM, signal.SIG_DFL)
            os._exit(call() & 1)
        hung = threading.Timer(10, os.kill, (child, signal.SIGKILL))
        hung.start()
        for each in (signal.SIGSTOP, signal.SIGCONT, signal.SIGTERM):
            time.sleep(0.05)
            os.kill(child, each)
            tell(f"{name} {each}", os.waitpid(child, os.WUNTRACED | os.WCONTINUED)[1])
        hung.cancel()


def file_size_limit(handler):
    make_file("limited")
    signal.signal(signal.SIGXFSZ, handler)
    resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))
    tell("truncate within", libc.truncate(b"limited", 1000))
    tell("truncate beyond", libc.truncate(b"limited", 1001))


def child_with_id(wanted):
    """A new child, with that id if root can have it so."""
    for tries in range(100):
        try:
            with open("/proc/sys/kernel/ns_last_pid", "w") as last:
                last.write(str(wanted - 1))
        except OSError:
            pass
        child = os.fork()
        if child == 0:
            signal.pause()
        if child == wanted or os.geteuid() != 0 or tries == 99:
            return child
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)


def process_descriptors():
    """A descriptor means the process for which it was opened, whoever has its id now."""
    child = os.fork()
    if child == 0:
        signal.pause()
    opened = {"directory": os.open(f"/proc/{child}", os.O_RDONLY), "handle": os.pidfd_open(child),
              "reference": os.open(f"/proc/{child}", os.O_PATH)}
    other = {"file": os.open(f"/proc/{child}/stat", os.O_RDONLY), "proc": os.open("/proc", os.O_RDONLY),
             "nothing": 77}

    def send(number, all_descriptors):
        for name, descriptor in all_descriptors.items():
            tell(f"signal {number} by {name}", syscall(PIDFD_SEND_SIGNAL, descriptor, number, 0, 0))

    send(0, {**opened, **other})
    os.kill(child, signal.SIGKILL)
    os.waitpid(child, 0)
    later = child_with_id(child)
    send(signal.SIGKILL, opened)
    tell("later child lives", int(os.waitpid(later, os.WNOHANG)[0] == 0))
    os.kill(later, signal.SIGKILL)
    os.waitpid(later, 0)


place = os.path.abspath(tempfile.mkdtemp(dir="."))
os.chdir(place)
apart("limit", at_descriptor_limit)
apart("memory", unreadable_arguments)
apart("sizes", sizes)
apart("bounds", bounded_names)
apart("later", later_calls)
apart("namespaces", namespace_arguments)
apart("unshare", failing_unshare)
apart("locks", locks)
apart("lease", leased_open)
apart("descriptors", process_descriptors)
apart("stops", stopped_and_ended)
apart("large", lambda: file_size_limit(signal.SIG_DFL))
apart("large, handled", lambda: file_size_limit(lambda *_: None))
shutil.rmtree(place)
