"""Runs a command with its output dropped and prints what it took: seconds, processor seconds, peak size in KiB.

A program of its own, because what a child needs before its exec counts as its peak, too, and this one is small.
"""

import os
import sys
import time

dropped = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)]
start = time.monotonic()
pid = os.posix_spawnp(sys.argv[1], sys.argv[1:], os.environ, file_actions=dropped)
_, status, usage = os.wait4(pid, 0)
print(time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss)
sys.exit(os.waitstatus_to_exitcode(status) and 1)
