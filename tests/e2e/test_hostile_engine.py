"""An engine that breaks the protocol: nothing is read beyond a packet, and nothing that follows is lost."""

import random
import struct
import time

import pytest

from harness import client as app
from harness import stream, wire
from harness.road import Road, latitudes, near

MANY = wire.satellites(*(wire.satellite(n, used=1, signal=30, elevation=n, azimuth=n) for n in range(1, 13)))
BLOCKS = (wire.time_of_fix(2026, 1, 2, 3, 4, 5678), MANY, wire.block(0xEF06, bytes(8)), wire.velocity(100, 200),
          wire.block(0xEF77, bytes(3)), wire.position(10, 20))


@pytest.fixture
def client(road):
    """Asks for the satellites too, so that every reader of a report is at work."""
    client = road.satellite_client(extra=app.SATINFO_START)
    road.still_fine = iter(range(1, 90))
    return client


def check(road, client):
    """The next good report arrives, and only debug lines and the named answers were written."""
    latitude = next(road.still_fine) + 0.5
    road.fix(client, latitude)
    client.wait_for_fix(near(latitude))
    assert road.daemon.is_running()


def flood(road, packets):
    """Sends packets; the daemon is followed, so that no long queue builds up."""
    for number, packet in enumerate(packets):
        road.engine.send(packet)
        if number % 64 == 63:
            road.settle()


def messages(session):
    """One good message of each kind that an engine sends."""
    return [wire.gnss_response(session), wire.notification(session, wire.WITH_FIX, *BLOCKS),
            wire.supl_response(0, *BLOCKS), wire.assistance_deleted(), wire.privacy_registered(),
            wire.location_request(9, 1, wire.client_name("Name"), wire.client_id("+4100"), wire.default_answer(1))]


# ---- lengths

def test_every_message_cut_at_every_length(road, client):
    """A message too short for its fixed fields is dropped behind its first line."""
    for message in messages(client.id):
        flood(road, [message[:length] for length in range(1, len(message))])
        check(road, client)


def test_every_message_cut_with_a_header_that_fits(road, client):
    for message in messages(client.id):
        flood(road, [message[:2] + struct.pack(">H", length) + message[4:length] for length in range(4, len(message))])
        check(road, client)


@pytest.mark.parametrize("message, line, fixed", [
    (wire.gnss_response(1), "ORVComm::handleGNSSResponse()", 7),
    (wire.notification(1, 0), "ORVComm::handleGNSSNotification()", 8),
    (wire.supl_response(0), "PositionDaemon::onPositionUpdateSUPL", 8),
    (wire.assistance_deleted(), "ORVComm::handleAstncDelResponse assistance", 5),
    (wire.privacy_registered(), "ORVComm::handlePrivacyRegistrationResponse privacy", 5),
    (wire.location_request(4, 1), "Got location request", 8)])
def test_the_shortest_message_of_each_kind(stage, message, line, fixed):
    road = Road(stage)
    before = len(road.lines(line))
    for length in range(1, fixed):
        road.engine.send(message[:length])
    road.settle()
    assert len(road.lines(line)) == before
    received = road.lines("ORV Message received. id: 0x" + message[:2].hex())
    assert len(received) >= fixed - 4  # every one that has a header is named
    road.engine.send(message[:fixed])
    road.settle()
    assert len(road.lines(line)) == before + 1


def test_a_fix_cut_at_every_length_is_whole_or_absent(road, client):
    """What stands before the cut counts as it is."""
    message = wire.notification(client.id, wire.WITH_FIX, wire.velocity(100, 200), wire.position(10, 20))
    for length in range(8, len(message) + 1):
        road.engine.send(message[:length])
    road.settle(client)
    fixes = client.fixes()
    velocities = [fix for fix in fixes if not fix.valid]
    assert len(velocities) == len(wire.position(10, 20)) and all(fix.attributes == {0: 1, 1: 2} for fix in velocities)
    assert latitudes(fix for fix in fixes if fix.valid) == [10]
    check(road, client)


def test_lying_header_lengths(road, client):
    """The packet's own length counts."""
    message = wire.notification(client.id, wire.WITH_FIX, wire.position(10, 20))
    lies = (0, 1, 4, 7, 8, len(message) - 1, len(message) + 1, 0x7FFF, 0x8000, 0xFFFF)
    for number, length in enumerate(lies):
        road.engine.send(message[:2] + struct.pack(">H", length) + message[4:12]
                         + struct.pack(">i", wire.degrees(number)) + message[16:])
    road.settle(client)
    assert latitudes(client.fixes()) == list(range(len(lies)))
    assert [f"ORV Message received. id: 0xef03 length: {length}" for length in lies] == road.lines(
        "ORV Message received. id: 0xef03")


# ---- sub-blocks

@pytest.mark.parametrize("length", [0, 1, 2, 3])
def test_a_sub_block_shorter_than_its_header_ends_the_walk(road, client, length):
    bad = struct.pack(">HH", 0xEFAB, length)
    road.report(client, wire.velocity(100, 200), bad, wire.position(10, 20))
    road.report(client, *(255 * [bad]))
    road.settle(client)
    assert road.lines("processSubBlocks") == []
    assert [fix.attributes for fix in client.fixes()] == [{stream.DIRECTION: 1, stream.GROUND_SPEED: 2}]
    check(road, client)


@pytest.mark.parametrize("excess", [1, 4, 0x7FDE, 0xFFFF - 18])
def test_a_sub_block_longer_than_the_rest_ends_the_walk(road, client, excess):
    velocity = wire.velocity(100, 200)
    bad = velocity[:2] + struct.pack(">H", len(velocity) + excess) + velocity[4:]
    road.report(client, wire.position(10, 20), bad)
    road.report(client, bad)
    road.settle(client)
    assert [sorted(fix.attributes) for fix in client.fixes()] == [[4, 5]]
    check(road, client)


@pytest.mark.parametrize("block, name", [(wire.position(10, 20), "POSDBG"), (wire.velocity(1, 2), "VELDBG"),
                                         (wire.time_of_fix(1, 2, 3, 4, 5, 6), "processSubBlocks(): Time")])
def test_a_known_sub_block_that_is_too_short_is_passed_over(road, client, block, name):
    """The walk goes on behind it."""
    for length in range(4, len(block)):
        road.report(client, wire.block(struct.unpack(">H", block[:2])[0], block[4:length]), wire.block(0xEFAA, b""))
    road.settle(client)
    assert road.lines(name) == []
    road.report(client, block)
    road.settle()
    assert len(road.lines(name)) == 1
    assert len(road.lines("processSubBlocks(): Ignored block 0xefaa.")) == len(block) - 4
    check(road, client)


@pytest.mark.parametrize("claimed, carried", [(255, 2), (3, 2), (1, 2), (0, 2), (2, 0), (255, 255), (1, 255)])
def test_lying_counts_of_satellites(road, client, claimed, carried):
    records = b"".join(wire.satellite(n + 1, used=1, signal=20) for n in range(carried))
    road.report(client, wire.block(0xEF04, struct.pack(">B3x", claimed) + records), wire.position(10, 20))
    assert near(10)(client.wait_for_fix())
    listed = [len(c.satellites) for c in client.received("satellitesInViewUpdate")]
    assert listed == ([min(claimed, carried)] if min(claimed, carried) else [])
    check(road, client)


def test_a_list_that_is_cut_inside_a_record(road, client):
    records = wire.satellite(1, used=1, signal=20) + wire.satellite(2, used=1, signal=20)
    for cut in range(len(records) + 1):
        road.report(client, wire.block(0xEF04, struct.pack(">B3x", 2) + records[:cut]), status=wire.NO_FIX)
    road.settle(client)
    assert [len(c.satellites) for c in client.received("satellitesInViewUpdate")] == 8 * [1] + [2]
    check(road, client)


@pytest.mark.parametrize("count", [0, 1, 2, 3, 255])
def test_lying_counts_of_sub_blocks(road, client, count):
    """A smaller count leaves sub-blocks unread, a larger one ends with the packet."""
    body = wire.velocity(100, 200) + wire.position(10, 20)
    road.engine.send(wire.message(0xEF03, struct.pack(">HBB", client.id, wire.WITH_FIX, count) + body))
    road.settle(client)
    assert [sorted(fix.attributes) for fix in client.fixes()] == {0: [], 1: [[0, 1]]}.get(count, [[0, 1, 4, 5]])
    check(road, client)


def test_texts_with_lying_counts(road, client):
    """A location request's name and id are clamped to what is there; without a count they are passed over."""
    name, number = "N\u00e4me", "+41"
    number_block = wire.block(0xEF13, struct.pack(">2xH", 0xFFFF) + number.encode("utf-16-be") + b"\1")
    road.engine.send(
        wire.location_request(9, 1, wire.block(0xEF12, struct.pack(">3xB", 255) + name.encode("utf-16-be"))),
        wire.location_request(9, 1, number_block),
        wire.location_request(9, 1, wire.block(0xEF12, b""), wire.block(0xEF13, b"\0"), wire.block(0xEF14, b"")),
        wire.location_request(9, 1, wire.client_name("end\0ed"), wire.block(0xEFEE, b"")))
    road.settle()
    assert road.lines("Client") == [f'Client name: "{name}"', f'Client ID: "{number}"', 'Client name: "end"']
    assert road.lines("Unknown subBlock") == [f"Unknown subBlock Id: {0xEFEE}"]
    assert road.daemon.messages("Warning") == 4 * ["Unknown location request type!"]
    check(road, client)


# ---- size and noise

def test_packets_as_large_as_they_get(road, client):
    """8192 bytes are read whole; what is longer is cut there, and never spills into the next."""
    for latitude, size in enumerate((8191, 8192, 8193, 20000, 65535)):
        place = wire.position(latitude, 20)
        road.report(client, wire.block(0xEF06, bytes(size - 8 - 4 - len(place))), place)
    road.settle(client)
    assert latitudes(client.fixes()) == [0, 1]  # the place of the longer ones ends beyond the cut
    road.report(client, *(255 * [wire.position(30, 20)]))
    road.settle(client)
    assert latitudes(client.fixes()) == [0, 1, 30]
    assert len(road.lines("POSDBG")) == 2 + 255
    check(road, client)


def test_random_packets(road, client):
    noise = random.Random(20260601)
    flood(road, (noise.randbytes(noise.choice((1, 3, 8, 12, 40, 200))) for _ in range(1500)))
    check(road, client)


def test_random_bodies_behind_good_ids(road, client):
    """Among them sub-blocks that are almost right."""
    noise = random.Random(1)
    ids = (0xEF02, 0xEF03, 0xEF03, 0xEF03, 0xEF05, 0xEF0B, 0xEF0D, 0xEF0E)

    def packet():
        body = bytearray(noise.randbytes(4))
        for _ in range(noise.randrange(6)):
            size = noise.choice((0, 3, 4, 14, 18, 32, 40))
            body += struct.pack(">HH", 0xEF00 + noise.randrange(0x18), size + noise.choice((0, 0, 0, -1, 1)) & 0xFFFF)
            body += noise.randbytes(max(0, size - 4))
        if noise.randrange(2):
            body[0:3] = struct.pack(">HB", client.id, wire.WITH_FIX)
        return wire.message(noise.choice(ids), bytes(body))

    flood(road, (packet() for _ in range(2000)))
    check(road, client)


def test_good_reports_with_single_bytes_changed(road, client):
    noise = random.Random(2)
    good = wire.notification(client.id, wire.WITH_FIX, *BLOCKS)

    def changed():
        packet = bytearray(good)
        for _ in range(noise.randrange(1, 4)):
            packet[noise.randrange(4, len(packet))] = noise.choice((0, 1, 0x7F, 0x80, 0xFF, noise.randrange(256)))
        return bytes(packet)

    flood(road, (changed() for _ in range(1500)))
    check(road, client)


def test_a_torrent_does_not_keep_clients_waiting(road, client):
    """Requests of clients are answered while the engine sends without a pause."""
    packets = wire.notification(9999, wire.WITH_FIX, wire.velocity(1, 2))
    for _ in range(20):
        road.engine.send(*(50 * [packets]))
        begin = time.monotonic()
        assert client.configure(app.SATINFO_START) == 0
        assert time.monotonic() - begin < 5
    check(road, client)
