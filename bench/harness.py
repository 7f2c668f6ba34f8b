"""What the cases share: what the run was told, a scratch folder in memory, the large file."""

import functools
import itertools
import os
import pathlib
import shutil
import tempfile

import client
from results import Report


class Bench:
    """One run. Everything that it makes is below `scratch`, a folder in memory that close() removes."""

    def __init__(self, arguments):
        self.home = pathlib.Path(arguments.home).resolve()
        self.build = pathlib.Path(arguments.build).resolve()
        self.quick = arguments.quick
        self.size = arguments.size  # of the large file, MiB
        self.repeats = arguments.repeats
        self.entries = arguments.entries  # of the huge directory
        self.only = arguments.only
        self.report = Report(judged=not arguments.quick)
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="wnfs-bench-", dir="/dev/shm"))
        self._names = 0

    def close(self):
        shutil.rmtree(self.scratch)

    def wants(self, *names):
        return not self.only or not self.only.isdisjoint(names)

    def wants_expressly(self, name):
        """Of a case that takes long, or much memory."""
        return name in self.only

    def unused(self, name):
        """A path that nothing has been made at yet."""
        self._names += 1
        return self.scratch / f"{name}-{self._names}"

    def folder(self, name):
        folder = self.unused(name)
        folder.mkdir()
        return folder

    def new_home(self):
        return client.copy_of_home(self.home, self.unused("home"))

    def program(self, name):
        """A program of the build's own for the benchmark."""
        return self.build / "bench" / name

    @functools.cache
    def large(self, mebibytes):
        """A large file of this size."""
        return make_large(self.unused("large"), mebibytes)


def make_large(path, mebibytes):
    block = os.urandom(1 << 20)
    with open(path, "wb") as out:
        for i in range(mebibytes):
            out.write(i.to_bytes(8, "little") + block[8:])
    return path


def make_many(folder, names, content=b""):
    """Small files with the same content."""
    for name in names:
        descriptor = os.open(folder / name, os.O_WRONLY | os.O_CREAT, 0o644)
        if content:
            os.write(descriptor, content)
        os.close(descriptor)


def make_links(folder, names, content_of=1000):
    """Names that are links to a few files of many sizes: of millions, little memory each."""
    sources = folder.with_name(f"{folder.name}-sources")
    sources.mkdir()
    for i in range(content_of):
        with open(sources / str(i), "wb") as out:
            out.truncate(i**3)
    files = itertools.cycle(map(str, sources.iterdir()))
    descriptor = os.open(folder, os.O_RDONLY)
    try:
        for name, file in zip(names, files):
            os.link(file, name, dst_dir_fd=descriptor)
    finally:
        os.close(descriptor)
