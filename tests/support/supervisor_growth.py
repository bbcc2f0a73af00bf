"""What a long-running supervisor uses, and whether it grows. For bench/soak and fuzz/calls."""
import os
import pathlib

EVERY = 0.5  # seconds between samples


def sample(pid):
    """Memory in KiB, descriptors, threads."""
    status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())
    return int(status["VmRSS"].split()[0]), len(os.listdir(f"/proc/{pid}/fd")), int(status["Threads"])


def lowest(samples):
    return [min(column) for column in zip(*samples)]


def grown(samples):
    """Names what the last quarter has more of than the first one after the warm-up, which is the first
    fifth and at least 5 s.

    Compared is the lowest of each quarter, as garbage comes and goes with the processes. Growth is more
    than 512 KiB and 3 % of memory, or one descriptor. Threads stay once they are made, for as many calls
    as ever waited at the same time, which is a matter of chance: 16 more are growth.
    """
    rest = samples[max(len(samples) // 5, int(5 / EVERY)):]
    quarter = len(rest) // 4
    if quarter < 4:
        return ["too few samples to tell"]
    before, after = lowest(rest[:quarter]), lowest(rest[-quarter:])
    allowed = (max(512, before[0] * 3 // 100), 0, 16)
    return [f"{name} grew from {old} to {new}"
            for name, old, new, more in zip(("memory (KiB)", "descriptors", "threads"), before, after, allowed)
            if new > old + more]
