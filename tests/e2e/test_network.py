"""The address commands on a host of the tests' own: loopback, link-local and global addresses of both families."""

import client
import namespace
import pytest
from texts import SUCCEEDED, message

V4 = (("10.20.30.40", 24), ("192.168.77.1", 25))
V6 = (("fd00:10::5", 64), ("2001:db8:5::1", 48))
UNUSABLE = ("169.254.9.9/16", "10.169.254.1/8")


@pytest.fixture(scope="module")
def host(installed_home, tmp_path_factory):
    """A client among network interfaces that are known to the last one."""
    why = namespace.why_impossible()
    if why:
        pytest.skip(why)
    network = namespace.Namespace()
    try:
        network.run("ip", "link", "add", "wnfs0", "type", "veth", "peer", "name", "wnfs1")
        for interface in ("wnfs0", "wnfs1"):
            network.run("ip", "link", "set", interface, "up")
        for address in [*UNUSABLE, *(f"{text}/{length}" for text, length in V4)]:
            network.run("ip", "address", "add", address, "dev", "wnfs0")
        for text, length in V6:
            network.run("ip", "address", "add", f"{text}/{length}", "dev", "wnfs0", "nodad")
        home = client.copy_of_home(installed_home, tmp_path_factory.mktemp("network") / "home")
        yield client.Client(home, network.enter())
    finally:
        network.close()


@pytest.fixture
def bare_host(own):
    """A client on a host that has loopback and nothing else."""
    why = namespace.why_impossible()
    if why:
        pytest.skip(why)
    network = namespace.Namespace()
    own.enter = network.enter()
    yield own
    network.close()


def lines_of(out):
    """The lines ahead of the verdict. The system keeps the addresses of a family in an order of its own."""
    assert out.endswith(SUCCEEDED)
    return sorted(out[: -len(SUCCEEDED)].decode().splitlines())


def listed(*addresses):
    return sorted(f"ip:: {text}" for text, _ in addresses)


def with_prefixes(*addresses):
    return sorted(f"Subnet Mask : {text}/{length}" for text, length in addresses)


@pytest.mark.parametrize(
    "word, expected",
    [
        ("enum_local_ips", listed(*V4, *V6)),
        ("enum_local_ipv4", listed(*V4)),
        ("enum_local_ipv6", listed(*V6)),
        ("get_ip_subnet", with_prefixes(*V4, *V6)),
        ("get_ip_subnetv4", with_prefixes(*V4)),
        ("get_ip_subnetv6", with_prefixes(*V6)),
    ],
)
def test_usable_addresses_are_listed_and_no_others(host, word, expected):
    assert lines_of(host.ok(word)) == expected


def test_the_addresses_have_one_order(host):
    """Prefixes come in the order of the list."""
    listed_order = [line.split()[1] for line in host.ok("enum_local_ips").splitlines()[:-1]]
    masked_order = [line.split()[3].split(b"/")[0] for line in host.ok("get_ip_subnet").splitlines()[:-1]]
    assert listed_order == masked_order


def test_a_host_without_usable_addresses_lists_none(bare_host):
    for word in ("enum_local_ips", "enum_local_ipv4", "enum_local_ipv6", "get_ip_subnet"):
        assert bare_host.ok(word) == SUCCEEDED


@pytest.mark.parametrize(
    "address, line",
    [
        ("10.20.30.40", "Subnet Mask : 10.20.30.40/24\n"),
        ("192.168.77.1", "Subnet Mask : 192.168.77.1/25\n"),
        ("2001:db8:5::1", "Subnet Mask : 2001:db8:5::1/48\n"),
        ("2001:DB8:5:0::1", "Subnet Mask : 2001:DB8:5:0::1/48\n"),
        ("127.0.0.1", "Subnet Mask : 127.0.0.1/8\n"),
        ("169.254.9.9", "Subnet Mask : 169.254.9.9/16\n"),
        ("::1", "Subnet Mask : ::1/128\n"),
        ("10.9.9.9", "querySubnetMask failed with ret: 99, for ip:10.9.9.9\n"),
        ("300.300.300.300", ""),
    ],
)
def test_a_prefix_is_told_for_any_address_of_an_interface(host, address, line):
    assert host.ok("getsubnetmask", "-ip", address) == line.encode() + SUCCEEDED


def test_the_word_getsubnetmask_is_known_in_any_case(host):
    assert host.ok("GetSubnetMask", "-ip", "127.0.0.1") == b"Subnet Mask : 127.0.0.1/8\n" + SUCCEEDED


def test_addresses_go_into_the_log(host, tmp_path):
    log = tmp_path / "log"
    assert host.ok("-log", log, "enum_local_ipv4") == b""
    assert lines_of(log.read_bytes()) == listed(*V4)


@pytest.mark.parametrize("words", [(), ("anything",)])
def test_the_network_is_not_discovered(local, words):
    text = "Network discovery is not supported; use enum_local_ips to list the local addresses."
    assert local.ok("networkdiscovery", *words) == message(65001, text) + SUCCEEDED
