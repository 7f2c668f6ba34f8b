"""The commands of docs/comparison.md, run as they stand there."""

import hashlib
import pathlib
import re
import tarfile

import servers
from client import Client, copy_of_home
from files import digest, make_file

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "comparison.md"


def commands():
    return re.findall(r"^    (\S.*)$", PAGE.read_text(encoding="utf-8"), re.MULTILINE)


def test_every_command_of_the_comparison_does_what_it_says(installed_home, tmp_path):
    caller = Client(copy_of_home(installed_home, tmp_path / "home"))
    served, here = tmp_path / "served", tmp_path / "here"
    (here / "daily" / "sub").mkdir(parents=True)
    served.mkdir()
    backup = make_file(here / "users01.dbf", 3_000_001)
    for number in range(40):
        make_file(here / "daily" / "sub" / f"part{number}", number)
    server = servers.LoopnfsdProcess(caller.home, served)
    caller.tslnfstab.write_text(servers.server_block("nas1", server.address, [("/export", "/mnt/backup")]))
    search = f"{caller.home / 'bin'}:/usr/sbin:/usr/bin:/sbin:/bin"
    shown = {}
    try:
        for line in commands():
            typed = line.replace("showmount -e nas1", f"showmount -e {server.address}")
            run = caller.run("-e", "-o", "pipefail", "-c", typed, program="/bin/bash", cwd=here, env={"PATH": search})
            assert run.status == 0, (line, run)
            shown[line.partition("tslwnfs ")[2].split()[0] + str(len(shown))] = run.out.decode()
    finally:
        server.close()
    assert len(shown) == 13
    text = "\n".join(shown.values())
    assert hashlib.sha256(backup.read_bytes()).hexdigest() in text  # what dd gave
    assert re.search(r"^/export +\(everyone\)$", text, re.MULTILINE)
    assert "/mnt/backup/users01.dbf" in next(out for name, out in shown.items() if name.startswith("find"))
    assert digest(here / "users01.copy") == digest(served / "users01.old") == digest(backup)
    assert not (served / "users01.dbf").exists() and not (served / "2026-01-31").exists()
    with tarfile.open(served / "daily.tar") as archive:
        assert len(archive.getnames()) == 42
    copied = {path.name: path.read_bytes() for path in (served / "daily" / "sub").iterdir()}
    assert copied == {path.name: path.read_bytes() for path in (here / "daily" / "sub").iterdir()}
