"""Making files and trees, and comparing them."""

import filecmp
import hashlib
import os
import random


def content(size):
    """Bytes that look random and are the same in every run."""
    return random.Random(size).randbytes(size)


def make_file(path, size):
    path.write_bytes(content(size))
    return path


def make_entries(folder, number, size=0):
    """A folder of so many files named entry0, entry1 and so on, no two alike unless they are empty."""
    folder.mkdir()
    bytes_of_all = content(size + number)
    for i in range(number):
        (folder / f"entry{i}").write_bytes(bytes_of_all[i : i + size])
    return folder


def make_links(folder, names):
    """A folder of links to one empty file beside it; a file system may have no more than 65,000 to one."""
    folder.mkdir()
    source = folder.with_name(f"{folder.name}-source")
    source.touch()
    for name in names:
        os.link(source, folder / name)
    return folder


def digest(path):
    """Size and hash: comparing those keeps a failure's report short."""
    with open(path, "rb") as stream:
        return os.fstat(stream.fileno()).st_size, hashlib.file_digest(stream, "sha256").hexdigest()


def make_tree(root, directories, files_each):
    """directories x files_each small files of different sizes; one directory in three lies inside the one before."""
    parent = root
    parent.mkdir()
    count = 0
    for number in range(directories):
        parent = (parent if number % 3 == 2 else root) / f"dir{number}"
        parent.mkdir()
        for name in range(files_each):
            make_file(parent / f"file{name}.dat", count)
            count += 1
    return root


def grow_tree(folder, branches=range(20)):
    """Three levels, 495 entries a branch (10,000 in all), of many sizes, with the letter x in every seventh name."""
    entries = 0
    for i in branches:
        for j in range(19):
            branch = folder / f"d{i}" / f"e{j}"
            branch.mkdir(parents=True)
            for k in range(25):
                (branch / f"{'x' if k % 7 == 0 else 'f'}{k}").write_bytes(b"." * (i * j * k % 3000))
            entries += 26
        entries += 1
    return entries


def tree_of(root):
    """Every path below root, relative to it, with the file's digest or None for a directory."""
    found = {}
    for path in sorted(root.rglob("*")):
        found[str(path.relative_to(root))] = digest(path) if path.is_file() else None
    return found


def same_bytes(one, other):
    return filecmp.cmp(one, other, shallow=False)
