"""The padding rule, seen from outside: the installed program on a fake storage library with blocks of 512 bytes.

The library in the home is left alone; LD_LIBRARY_PATH puts the fake in its place, which RUNPATH allows.
"""

import re

import pytest
from files import content, digest, make_file
from texts import SUCCEEDED, banner, copy_banner, failed, not_a_directory


@pytest.fixture
def fake(local, build_tree, tmp_path):
    library = build_tree / "tests" / "support" / "fake"
    assert (library / "libnfstdm.so").exists()
    return Fake(local, library, tmp_path)


class Fake:
    """Runs over the fake library: `root` is what stands under /m, before and after."""

    def __init__(self, client, library, place):
        self.client = client
        self.root = place / "remote"
        self.root.mkdir()
        self.log = place / "calls"
        self.environment = {
            "LD_LIBRARY_PATH": library,
            "FAKE_TDM_ROOT": self.root,
            "FAKE_TDM_BLOCK_SIZE": 512,
            "FAKE_TDM_LOG": self.log,
        }

    def run(self, *arguments, fail=None, **options):
        changes = {**self.environment, "FAKE_TDM_FAIL": fail} if fail else self.environment
        return self.client.run(*arguments, env=changes, **options)

    def transfer_calls(self):
        """The calls that move bytes or set sizes, in their order: ("read", offset, count), ("resize", size), ..."""
        found = []
        for line in self.log.read_text().splitlines():
            operation = line.split()[0]
            numbers = dict(re.findall(r"(\w+)=(\d+)", line))
            if operation == "submit":
                kind = re.search(r"\b(read|write)\b", line)[1]
                found.append((kind, int(numbers["offset"]), int(numbers["count"])))
            elif operation in ("create", "resize"):
                found.append((operation, int(numbers["size"])))
            elif operation in ("reidentify", "commit", "unidentify"):
                found.append((operation,))
        return found


def test_a_library_without_symbol_versions_stands_in_without_a_word_of_the_loader(fake):
    make_file(fake.root / "a", 3)
    run = fake.run("cat", "/m/a")
    shown = banner("CAT", "/m/a") + not_a_directory("/m/a") + content(3) + SUCCEEDED
    assert (run.status, run.out, run.err) == (0, shown, b"")
    assert fake.log.read_text().startswith("tslinit")


def test_what_a_call_returns_as_its_reason_is_told_of_a_library_that_tells_no_failures(fake):
    run = fake.client.run("cat", "/m/none", env={**fake.environment, "TSLWNFS_TERMINAL": "always"})
    assert (run.status, run.err) == (1, b"tslwnfs: The fake refuses.\n")


def test_a_remote_source_is_grown_read_in_whole_blocks_and_shrunk_back(fake):
    make_file(fake.root / "a", 32868)
    run = fake.run("cp", "/m/a", "/m/b")
    assert (run.status, run.out) == (0, copy_banner("/m/a", "/m/b") + not_a_directory("/m/a") + SUCCEEDED)
    assert fake.transfer_calls() == [
        ("resize", 33280),
        ("reidentify",),
        ("create", 33280),
        ("read", 0, 32768),
        ("write", 0, 32768),
        ("read", 32768, 512),
        ("write", 32768, 512),
        ("resize", 32868),
        ("resize", 32868),
        ("commit",),
        ("unidentify",),
    ]
    assert digest(fake.root / "b") == digest(fake.root / "a")
    assert (fake.root / "a").read_bytes() == content(32868)


def test_a_whole_number_of_blocks_is_not_padded(fake):
    make_file(fake.root / "a", 33280)
    fake.run("cp", "/m/a", "/m/b")
    assert [call for call in fake.transfer_calls() if call[0] in ("create", "resize")] == [
        ("create", 33280),
        ("resize", 33280),
    ]


def test_an_empty_file_takes_one_read_and_one_write_of_nothing(fake):
    make_file(fake.root / "a", 0)
    fake.run("cp", "/m/a", "/m/b")
    calls = fake.transfer_calls()
    assert ("read", 0, 0) in calls and ("write", 0, 0) in calls
    assert (fake.root / "b").read_bytes() == b""


@pytest.mark.parametrize("size", [1, 511, 513, 32257, 32700, 32767, 32769, 65300])
def test_padding_never_reaches_a_local_file_or_the_output(fake, tmp_path, size):
    make_file(fake.root / "a", size)
    assert fake.run("cp", "/m/a", tmp_path / "back").status == 0
    assert (tmp_path / "back").read_bytes() == content(size)
    run = fake.run("cat", "/m/a")
    assert run.out == banner("CAT", "/m/a") + not_a_directory("/m/a") + content(size) + SUCCEEDED
    assert (fake.root / "a").read_bytes() == content(size)


@pytest.mark.parametrize("size", [1, 32700, 32868])
def test_a_local_source_is_padded_at_its_destination_only(fake, tmp_path, size):
    source = make_file(tmp_path / "source", size)
    assert fake.run("cp", source, "/m/b").status == 0
    total = (size + 511) // 512 * 512
    calls = fake.transfer_calls()
    assert calls[0] == ("create", total)
    assert sum(call[2] for call in calls if call[0] == "write") == total
    assert calls[-2:] == [("resize", size), ("commit",)]
    assert (fake.root / "b").read_bytes() == content(size)


def test_a_longer_existing_destination_is_cut_and_not_committed(fake, tmp_path):
    make_file(fake.root / "b", 90_000)
    source = make_file(tmp_path / "source", 700)
    assert fake.run("cp", source, "/m/b").status == 0
    names = [call[0] for call in fake.transfer_calls()]
    assert "create" not in names and "commit" not in names
    assert (fake.root / "b").read_bytes() == content(700)


def test_a_refusal_leaves_the_source_grown(fake, tmp_path):
    """Declining is deliberate and does no clean-up."""
    make_file(fake.root / "a", 100)
    kept = make_file(tmp_path / "kept", 7)
    run = fake.run("cp", "-i", "/m/a", kept, stdin=b"n\n")
    assert run.status == 1
    assert (fake.root / "a").stat().st_size == 512
    assert kept.read_bytes() == content(7)


@pytest.mark.parametrize("operation", ["submit", "reap"])
def test_a_failed_request_ends_the_program_at_once(fake, tmp_path, operation):
    make_file(fake.root / "a", 1000)
    run = fake.run("cp", "/m/a", tmp_path / "b", fail=f"{operation}:1:5")
    assert (run.status, run.out) == (1, copy_banner("/m/a", tmp_path / "b") + not_a_directory("/m/a"))


def test_a_failed_resize_fails_the_command(fake, tmp_path):
    make_file(fake.root / "a", 1000)
    run = fake.run("cp", "/m/a", tmp_path / "b", fail="resize:1:28")
    expected = copy_banner("/m/a", tmp_path / "b") + not_a_directory("/m/a") + failed(1)
    assert (run.status, run.out) == (1, expected)
    assert not (tmp_path / "b").exists()
