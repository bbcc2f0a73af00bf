#!/usr/bin/env python3
"""make_call.py CALL:NUMBER:TIMES...: makes each system call so many times, each time in a process and a new
directory CALL.0, CALL.1, ... of its own, on "f" there (a file), "d" (a directory) and "new" (nothing); signals
have the number 0. Prints call, time and error, 0 when it worked. What a call needs is opened before "go" is; when it
is over, "ended" is opened in the directory above."""

import ctypes
import os
import resource
import struct
import sys
import time
from types import SimpleNamespace

libc = ctypes.CDLL(None, use_errno=True)
f, d, new, here = b"f", b"d", b"new", -100
data = ctypes.create_string_buffer(b"x", 64)
one = struct.pack("Pq", ctypes.addressof(data), 1)  # an iovec
value = struct.pack("Q2I", ctypes.addressof(data), 1, 0)  # an xattr_args
queued = struct.pack("3i", 0, 0, -1) + bytes(116)  # a siginfo of SI_QUEUE
same_schedule = struct.pack("=2IQ", 48, 0, 0x18) + bytes(32)  # a sched_attr that keeps policy and nice value
times = struct.pack("4q", 1, 0, 1, 0)
creating = struct.pack("3Q", os.O_CREAT | os.O_WRONLY, 0o640, 0)


def now(parts):
    nanoseconds = time.time_ns()
    return struct.pack("qq", nanoseconds // 10**9, nanoseconds % 10**9 * parts // 10**9)


def no_offset():
    return ctypes.create_string_buffer(struct.pack("I", 0x100), 208)  # a timex of ADJ_SETOFFSET


def limits(which):
    return struct.pack("2Q", *(each % 2**64 for each in resource.getrlimit(which)))


def processors(task):
    return sum(1 << each for each in os.sched_getaffinity(task)).to_bytes(128, "little")


CALLS = {
    "open": lambda n: (f, os.O_RDWR), "openat": lambda n: (here, f, os.O_WRONLY | os.O_APPEND),
    "openat2": lambda n: (here, new, creating, 24), "creat": lambda n: (f, 0o600), "access": lambda n: (f, os.R_OK),
    "faccessat": lambda n: (here, f, os.W_OK), "faccessat2": lambda n: (here, d, os.X_OK, 0x200),
    "chdir": lambda n: (d,), "fchdir": lambda n: (n.directory,), "chroot": lambda n: (d,),
    "inotify_add_watch": lambda n: (n.watches, f, 2), "mknod": lambda n: (new, 0o100600, 0),
    "mknodat": lambda n: (here, new, 0o100600, 0), "mkdir": lambda n: (new, 0o700),
    "mkdirat": lambda n: (here, new, 0o700), "symlink": lambda n: (f, new), "symlinkat": lambda n: (f, here, new),
    "link": lambda n: (f, new), "linkat": lambda n: (here, f, here, new, 0), "unlink": lambda n: (f,),
    "unlinkat": lambda n: (here, f, 0), "rmdir": lambda n: (d,), "rename": lambda n: (f, new),
    "renameat": lambda n: (here, d, here, new), "renameat2": lambda n: (here, f, here, d, 2),  # RENAME_EXCHANGE
    "chmod": lambda n: (f, 0o700), "fchmod": lambda n: (n.file, 0o700), "fchmodat": lambda n: (here, f, 0o700),
    "fchmodat2": lambda n: (here, f, 0o700, 0), "chown": lambda n: (f, -1, -1), "lchown": lambda n: (f, -1, -1),
    "fchown": lambda n: (n.file, -1, -1), "fchownat": lambda n: (here, f, -1, -1, 0), "truncate": lambda n: (f, 1),
    "ftruncate": lambda n: (n.file, 1), "utime": lambda n: (f, None), "utimes": lambda n: (f, times),
    "futimesat": lambda n: (here, f, times), "utimensat": lambda n: (here, f, times, 0),
    "setxattr": lambda n: (f, b"user.a", data, 1, 0), "lsetxattr": lambda n: (f, b"user.a", data, 1, 0),
    "fsetxattr": lambda n: (n.file, b"user.a", data, 1, 0), "getxattr": lambda n: (f, b"user.b", data, 64),
    "lgetxattr": lambda n: (f, b"user.b", data, 64), "fgetxattr": lambda n: (n.file, b"user.b", data, 64),
    "removexattr": lambda n: (f, b"user.b"), "lremovexattr": lambda n: (f, b"user.b"),
    "fremovexattr": lambda n: (n.file, b"user.b"), "setxattrat": lambda n: (here, f, 0, b"user.a", value, 16),
    "getxattrat": lambda n: (here, f, 0, b"user.b", value, 16), "removexattrat": lambda n: (here, f, 0, b"user.b"),
    "file_setattr": lambda n: (here, f, bytes(24), 24, 0), "kill": lambda n: (n.own, 0), "tkill": lambda n: (n.own, 0),
    "tgkill": lambda n: (n.own, n.own, 0), "rt_sigqueueinfo": lambda n: (n.own, 0, queued),
    "rt_tgsigqueueinfo": lambda n: (n.own, n.own, 0, queued), "pidfd_send_signal": lambda n: (n.process, 0, None, 0),
    "settimeofday": lambda n: (now(10**6), None), "clock_settime": lambda n: (0, now(10**9)),
    "clock_adjtime": lambda n: (0, no_offset()), "adjtimex": lambda n: (no_offset(),),
    "read": lambda n: (n.file, data, 1), "pread64": lambda n: (n.file, data, 1, 0), "readv": lambda n: (n.file, one, 1),
    "preadv": lambda n: (n.file, one, 1, 0, 0), "preadv2": lambda n: (n.file, one, 1, 0, 0, 0),
    "getdents": lambda n: (n.directory, data, 64), "getdents64": lambda n: (n.directory, data, 64),
    "write": lambda n: (n.file, data, 1), "pwrite64": lambda n: (n.file, data, 1, 0),
    "writev": lambda n: (n.file, one, 1), "pwritev": lambda n: (n.file, one, 1, 0, 0),
    "pwritev2": lambda n: (n.file, one, 1, 0, 0, 0), "sendfile": lambda n: (n.other, n.file, None, 1),
    "copy_file_range": lambda n: (n.file, None, n.other, None, 1, 0),
    "splice": lambda n: (n.file, None, n.pipe, None, 1, 0),
    "mmap": lambda n: (None, 64, 1, 2, n.file, 0), "bind": lambda n: (n.socket, struct.pack("H", 1) + new, 5),
    # What the parent has already, and no page of it.
    "prlimit64": lambda n: (n.parent, resource.RLIMIT_CORE, limits(resource.RLIMIT_CORE), None),
    "sched_setaffinity": lambda n: (n.parent, 128, processors(n.parent)),
    "sched_setscheduler": lambda n: (n.parent, 0, bytes(4)), "sched_setparam": lambda n: (n.parent, bytes(4)),
    "sched_setattr": lambda n: (n.parent, same_schedule, 0),
    "setpriority": lambda n: (0, n.parent, os.getpriority(os.PRIO_PROCESS, n.parent)),
    "ioprio_set": lambda n: (1, n.parent, 0), "move_pages": lambda n: (n.parent, 0, None, None, None, 0),
    "migrate_pages": lambda n: (n.parent, 64, struct.pack("Q", 1), struct.pack("Q", 1)),
}


def make(number, arguments, directory):
    os.mkdir(directory, 0o700)
    os.chdir(directory)
    os.mkdir(d, 0o700)
    for name in f, b"other", b"go":
        os.close(os.open(name, os.O_CREAT | os.O_WRONLY, 0o600))
    os.chmod(f, 0o4755)  # what its owner gives up is seen by the hooks
    needs = SimpleNamespace(file=os.open(f, os.O_RDWR), directory=os.open(d, os.O_RDONLY),
                            other=os.open("other", os.O_RDWR), process=os.pidfd_open(os.getpid()),
                            watches=libc.inotify_init(), pipe=os.pipe()[1], own=os.getpid(), socket=libc.socket(1, 1, 0), parent=os.getppid())
    passed = [ctypes.c_long(each) if isinstance(each, int) else each for each in arguments(needs)]
    os.close(os.open("go", os.O_RDONLY))
    return ctypes.get_errno() if libc.syscall(ctypes.c_long(number), *passed) < 0 else 0


os.umask(0o22)
os.close(os.open("ended", os.O_CREAT | os.O_WRONLY, 0o600))
for argument in sys.argv[1:]:
    call, number, count = argument.split(":")
    for again in range(int(count)):
        child = os.fork()
        if child == 0:
            error = 255
            try:
                error = make(int(number), CALLS[call], f"{call}.{again}")
            finally:
                os._exit(error)
        error = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        os.close(os.open("ended", os.O_RDONLY))
        print(call, again, error)
