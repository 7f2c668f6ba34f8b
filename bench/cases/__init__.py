"""The sections of the benchmark, in the order in which they are run and told.

Each has a TITLE, the NAMES of its cases with what they are, and measure(bench), which adds tables to bench.report."""

from . import calls, copies, directories, large_file, paths, versions

SECTIONS = (large_file, directories, versions, copies, paths, calls)
