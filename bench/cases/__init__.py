"""The sections of the benchmark, in the order in which they are run and told.

Each has a TITLE, the NAMES of its cases with what they are, and measure(bench), which adds tables to bench.report."""

from . import calls, copies, directories, large_file, paths, security, small_files, versions

SECTIONS = (large_file, small_files, directories, versions, security, copies, paths, calls)
