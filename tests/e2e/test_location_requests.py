"""Somebody on the network asks for the position: from the engine's packet to the dialog and back."""

import struct

import pytest
from gi.repository import GLib

from harness import wire
from harness.dialogs import APPLICATION, APPLICATION_PATH, NAME, PATH
from harness.fakedialogs import FakeDialogs
from harness.road import Road, time_between

ALREADY_OPEN = "There is already another dialog open!"
COULD_NOT_CLOSE = "Could not close dialog with transaction id:"
DBUS_ERROR = "LocationUI::dialogDone() : Dbus Error:"
NO_INTEGER = "LocationUI::locationRequestDone: no integer in the reply, taken as declined"
DROPPED = "LocationUI::locationRequestDone: answer to a withdrawn request dropped"
UNKNOWN_TYPE = "Unknown location request type!"
REPLYING = "Sending location request reply:"
YES, NO = bytes.fromhex("ef0f 0006 01 00"), bytes.fromhex("ef0f 0006 00 00")


@pytest.fixture
def dialogs(stage):
    return FakeDialogs(stage.session)


def ask(road, dialogs, *blocks, kind=1, transaction=9):
    """A request of the engine, and the dialog that it leads to."""
    road.engine.send(wire.location_request(kind, transaction, *blocks))
    return dialogs.next("locationRequest")


def shown(road, dialogs, packet):
    """What the dialog for this packet is asked to show; the user refuses."""
    road.engine.send(packet)
    question = dialogs.next("locationRequest")
    question.answer(0)
    dialogs.next("exit")
    return question.arguments


def replies(road):
    """The answers that the engine has got, as bytes."""
    road.settle()
    return [reply.raw for reply in road.engine.all(wire.LocationReply)]


def utf16(*units):
    return struct.pack(f">{len(units)}H", *units)


def name_block(count, text, junk=bytes(3)):
    return wire.block(0xEF12, junk + bytes([count]) + text)


def id_block(count, text, junk=bytes(2)):
    return wire.block(0xEF13, junk + struct.pack("<H", count) + text)


# ---- what the user is shown

@pytest.mark.parametrize("kind", [0, 1])
@pytest.mark.parametrize("default", [0, 1, 0xFF])
def test_a_request_is_shown_with_all_it_says(road, dialogs, kind, default):
    question = ask(road, dialogs, wire.client_name("Alice"), wire.client_id("+358 40"), wire.default_answer(default),
                   kind=kind, transaction=200)
    assert question.arguments == (kind, default != 0, "Alice", "+358 40")
    assert question.starts_service
    assert dialogs.calls.items()[0][:3] == (PATH, NAME, "locationRequest")
    texts = road.lines("Got location request") + road.lines("Client ")
    assert texts == ["Got location request", 'Client name: "Alice"', 'Client ID: "+358 40"']
    assert road.daemon.messages("Warning") == []


def test_a_request_says_nothing(road, dialogs):
    assert ask(road, dialogs).arguments == (1, False, "", "")


def test_only_a_default_answer(road, dialogs):
    road.engine.send(bytes.fromhex("ef0e0010 01090001 ef140008 0000 01 00"))
    assert dialogs.next("locationRequest").arguments == (1, True, "", "")


def test_the_count_of_an_id_comes_least_significant_byte_first(road, dialogs):
    road.engine.send(bytes.fromhex("ef0e0018 01090001 ef130010 0000 0400 0041004200430044"))
    assert dialogs.next("locationRequest").arguments == (1, False, "", "ABCD")


TEXTS = {
    "Latin": "Zoë Müller-Đặng",
    "Greek and Cyrillic": "Ωμέγα Щукин",
    "right to left": "שלום مرحبا",
    "Chinese, Japanese, Korean": "北京 とうきょう 서울",
    "Indic, with combining marks": "नमस्ते é",
    "surrogate pairs": "😀 𐍈 𝄞 𠀋",
    "a pair at the very end": "a\U0010ffff",
    "what a format or a shell might read": "%s %n $(id) <b>\\ \"quoted\"",
    "line ends and other controls": "one\r\ntwo\tthree\x1b[31m\x7f",
    "what is no character": "\ufffe\uffff\ufdd0",
    "a byte-order mark of its own": "\ufeffA",
    "as long as the count can say": "x" * 255,
}


def test_texts_come_as_they_were_sent(road, dialogs):
    for name, text in TEXTS.items():
        request = wire.location_request(1, 9, wire.client_name(text), wire.client_id(text))
        assert shown(road, dialogs, request) == (1, False, text, text), name
    assert not any("\x1b" in line for line in road.daemon.lines())  # nobody forges the log


def test_a_long_id(road, dialogs):
    text = "0123456789" * 400
    assert ask(road, dialogs, wire.client_id(text)).arguments == (1, False, "", text)


def test_half_a_surrogate_pair_is_replaced(road, dialogs):
    for units, text in (((0xD83D,), "?"), ((0xDE00,), "?"), ((0x41, 0xD83D, 0x42), "A?B"), ((0xDE00, 0xD83D), "??")):
        request = wire.location_request(1, 9, name_block(len(units), utf16(*units)))
        assert shown(road, dialogs, request) == (1, False, text, ""), units


A, B, C, NUL = 0x41, 0x42, 0x43, 0
ODD_BLOCKS = {  # sub-blocks, then default answer, name and id as they are shown
    "more text than the count": ([name_block(2, utf16(A, B, C))], (False, "AB", "")),
    "a zero ends it": ([name_block(4, utf16(A, NUL, B, C))], (False, "A", "")),
    "a zero begins it": ([name_block(2, utf16(NUL, A))], (False, "", "")),
    "a count of none": ([name_block(0, utf16(A))], (False, "", "")),
    "a count beyond the block": ([name_block(9, utf16(A, B))], (False, "AB", "")),
    "no text at all": ([name_block(255, b"")], (False, "", "")),
    "an odd byte at the end": ([name_block(2, utf16(A) + b"\0")], (False, "A", "")),
    "bytes that are not read": ([name_block(1, utf16(A), junk=b"\xff\xfe\xfd")], (False, "A", "")),
    "an id's count beyond the block": ([id_block(0xFFFF, utf16(A, B))], (False, "", "AB")),
    "an odd byte at the id's end": ([id_block(2, utf16(A) + b"\0")], (False, "", "A")),
    "an id's count the other way round": ([id_block(0x0100, utf16(A))], (False, "", "A")),
    "an id's bytes that are not read": ([id_block(1, utf16(A), junk=b"\xff\xff")], (False, "", "A")),
    "a later name": ([wire.client_name("first"), wire.client_name("second")], (False, "second", "")),
    "a later id, an empty one": ([wire.client_id("first"), wire.client_id("")], (False, "", "")),
    "a later default answer": ([wire.default_answer(1), wire.default_answer(0)], (False, "", "")),
    "any order": ([wire.default_answer(1), wire.client_id("I"), wire.client_name("N")], (True, "N", "I")),
    "blocks too short for their fields": ([wire.client_name("N"), wire.block(0xEF12, bytes(3)), wire.block(0xEF13, bytes(2)),
                                           wire.block(0xEF14, bytes(2))], (False, "N", "")),
}


def test_odd_sub_blocks(road, dialogs):
    for name, (blocks, arguments) in ODD_BLOCKS.items():
        assert shown(road, dialogs, wire.location_request(1, 9, *blocks)) == (1, *arguments), name


NAME_BLOCK = wire.client_name("N")
ODD_PACKETS = {
    "more blocks claimed than there are": (
        wire.message(0xEF0E, bytes([1, 9, 0, 200]) + NAME_BLOCK), (False, "N", "")),
    "fewer blocks claimed": (
        wire.message(0xEF0E, bytes([1, 9, 0, 1]) + NAME_BLOCK + wire.default_answer(1)), (False, "N", "")),
    "none claimed, and a byte that is not read": (
        wire.message(0xEF0E, bytes([1, 9, 0xFF, 0]) + NAME_BLOCK), (False, "", "")),
    "a block beyond the packet": (
        wire.message(0xEF0E, bytes([1, 9, 0, 2]) + NAME_BLOCK + struct.pack(">HH", 0xEF14, 200)), (False, "N", "")),
    "a block shorter than its header": (
        wire.message(0xEF0E, bytes([1, 9, 0, 3]) + NAME_BLOCK + struct.pack(">HH", 0xEF14, 3) + wire.default_answer(1)),
        (False, "N", "")),
    "a packet cut inside the text": (
        wire.location_request(1, 9, wire.client_name("ABC"))[:-3], (False, "", "")),
}


def test_counts_beyond_the_packet(road, dialogs):
    """The walk ends where the packet ends; what was read before counts."""
    for name, (packet, arguments) in ODD_PACKETS.items():
        assert shown(road, dialogs, packet) == (1, *arguments), name


def test_a_packet_too_short_for_its_fields_is_dropped(road, dialogs):
    for length in range(4, 8):
        road.engine.send(wire.location_request(1, 9)[:length])
    road.settle()
    assert dialogs.unseen() == []
    assert not road.daemon.has_message("Got location request")


def test_unknown_sub_blocks_are_logged_and_skipped(road, dialogs):
    question = ask(road, dialogs, wire.block(0xEF15, bytes(5)), wire.client_name("N"), wire.block(0xEF01, bytes(30)),
                   wire.block(0, b""), wire.default_answer(1))
    assert question.arguments == (1, True, "N", "")
    assert road.lines("Unknown subBlock") == [f"Unknown subBlock Id: {number}" for number in (0xEF15, 0xEF01, 0)]


@pytest.mark.parametrize("kind", [2, 3, 5, 255])
def test_a_request_of_an_unknown_type_is_dropped(road, dialogs, kind):
    road.engine.send(wire.location_request(kind, 9, wire.client_name("Alice")))
    assert replies(road) == []
    assert dialogs.unseen() == []
    assert road.daemon.messages("Warning") == [UNKNOWN_TYPE]
    assert road.daemon.has_message('Client name: "Alice"', "Debug")


def test_a_request_is_shown_without_consent_to_positioning(stage, dialogs):
    road = Road(stage, consent=False)
    ask(road, dialogs).answer(1)
    road.engine.expect(wire.LocationReply, accepted=1)


# ---- what the engine is told

@pytest.mark.parametrize("answer, packet, word", [
    (1, YES, "true"), (0, NO, "false"), (2, YES, "true"), (-1, YES, "true"), (0x100, YES, "true")])
def test_the_users_answer_goes_to_the_engine(road, dialogs, answer, packet, word):
    ask(road, dialogs, wire.default_answer(1)).answer(answer)
    road.engine.expect(wire.LocationReply)
    exit = dialogs.next("exit")
    assert dialogs.calls.items()[-1] == (APPLICATION_PATH, APPLICATION, "exit", ())
    assert not exit.starts_service
    assert replies(road) == [packet]
    assert road.lines(REPLYING) == [f"{REPLYING} {word}"]
    assert road.daemon.messages("Warning") == road.daemon.messages("Critical") == []


def test_an_integer_counts_in_its_wrapping_too(road, dialogs):
    packets = []
    for reply, packet in (("(<1>,)", YES), ("(<<0>>,)", NO), ("((1,),)", YES), ("(0, 1)", NO)):
        ask(road, dialogs).answer(GLib.Variant.parse(None, reply, None, None))
        dialogs.next("exit")
        packets.append(packet)
        assert replies(road) == packets, reply
    assert road.daemon.messages("Warning") == []


def test_an_answer_of_the_wrong_type_is_a_refusal(road, dialogs):
    """Also where the engine would take silence for consent."""
    wrong = ("()", "(true,)", "('1',)", "(uint32 1,)", "(int64 1,)", "(byte 1,)", "(1.0,)", "([1],)", "(<true>,)",
             "((1, 1),)", "((true,),)", "(objectpath '/yes',)", "({'accepted': 1},)")
    for number, reply in enumerate(wrong, start=1):
        ask(road, dialogs, wire.default_answer(1)).answer(GLib.Variant.parse(None, reply, None, None))
        dialogs.next("exit")
        assert replies(road) == [NO] * number, reply
        assert road.daemon.messages("Warning") == [NO_INTEGER] * number, reply


def test_one_request_after_the_other(road, dialogs):
    for transaction, answer in enumerate((1, 0, 0, 1)):
        ask(road, dialogs, transaction=transaction).answer(answer)
        dialogs.next("exit")
    assert replies(road) == [YES, NO, NO, YES]


def test_a_second_request_is_not_shown(road, dialogs):
    question = ask(road, dialogs, wire.client_name("Alice"), transaction=9)
    road.engine.send(wire.location_request(1, 10, wire.client_name("Bob")))
    road.settle()
    assert road.lines(ALREADY_OPEN) == [ALREADY_OPEN]
    assert dialogs.unseen() == []
    question.answer(0)
    dialogs.next("exit")
    assert replies(road) == [NO]


def test_a_start_does_not_disturb_the_open_dialog(stage, dialogs):
    """It waits, and the next one asks for both."""
    road = Road(stage, consent=False)
    question = ask(road, dialogs)
    first = road.client()
    road.settle()
    assert road.lines(ALREADY_OPEN) == [ALREADY_OPEN]
    question.answer(1)
    dialogs.next("exit")
    second = road.client()
    dialogs.accept()
    for client in (first, second):
        road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)


# ---- withdrawn by the engine

@pytest.mark.parametrize("transaction, default", [(9, 1), (0, 0), (255, 1)])
def test_a_withdrawn_request_is_closed(road, dialogs, transaction, default):
    ask(road, dialogs, wire.client_name("Zoë 😀"), wire.client_id("42"), wire.default_answer(default),
        transaction=transaction)
    road.engine.send(wire.location_request(4, transaction, wire.client_name("else"), wire.default_answer(1 - default)))
    withdrawal = dialogs.next("locationRequest")
    assert withdrawal.arguments == (2, default == 1, "Zoë 😀", "")
    assert not withdrawal.starts_service
    dialogs.next("exit")
    assert replies(road) == []
    assert road.daemon.has_message('Client name: "else"', "Debug")
    assert ask(road, dialogs, transaction=1).arguments == (1, False, "", "")


@pytest.mark.parametrize("transaction", [8, 0, 255])
def test_a_withdrawal_of_another_request_is_logged(road, dialogs, transaction):
    question = ask(road, dialogs)
    road.engine.send(wire.location_request(4, transaction))
    road.settle()
    assert road.lines(COULD_NOT_CLOSE) == [f"{COULD_NOT_CLOSE} {transaction}"]
    assert dialogs.unseen() == []
    question.answer(1)
    dialogs.next("exit")
    assert replies(road) == [YES]


def test_a_withdrawal_with_nothing_open_is_logged(road, dialogs):
    road.engine.send(wire.location_request(4, 0))
    ask(road, dialogs).answer(1)
    dialogs.next("exit")
    road.engine.send(wire.location_request(4, 9))
    assert replies(road) == [YES]
    assert road.lines(COULD_NOT_CLOSE) == [f"{COULD_NOT_CLOSE} 0", f"{COULD_NOT_CLOSE} 9"]
    assert dialogs.unseen() == []


def test_the_answer_to_a_withdrawn_request_is_dropped(road, dialogs):
    """It names no transaction: sent on, it would be consent to whatever the engine asks next."""
    question = ask(road, dialogs, wire.client_name("Alice"), transaction=9)
    road.engine.send(wire.location_request(4, 9))
    dialogs.next("locationRequest")
    dialogs.next("exit")
    following = ask(road, dialogs, wire.client_name("Bob"), transaction=10)
    question.answer(1)
    road.daemon.wait_for_message(DROPPED, "Debug")
    assert replies(road) == []
    assert dialogs.unseen() == []
    following.answer(0)
    dialogs.next("exit")
    assert replies(road) == [NO]


# ---- dialogs that fail

def stays_open(road, dialogs):
    """After a failed dialog nothing more is shown; only a withdrawal closes it."""
    assert replies(road) == []
    assert road.lines(REPLYING) == []
    road.engine.send(wire.location_request(1, 10))
    road.settle()
    assert road.lines(ALREADY_OPEN) == [ALREADY_OPEN]
    assert dialogs.unseen() == []
    road.engine.send(wire.location_request(4, 9))
    assert dialogs.next("locationRequest").arguments[0] == 2
    dialogs.next("exit")
    ask(road, dialogs, transaction=11)


def test_without_the_dialog_service(stage, road):
    road.engine.send(wire.location_request(1, 9))
    road.daemon.wait_for_message(DBUS_ERROR, "Warning")
    road.settle()
    warnings = road.daemon.messages("Warning")
    assert len(warnings) == 2 and NAME in warnings[1]
    stays_open(road, FakeDialogs(stage.session))


def test_a_dialog_service_that_dies_in_mid_dialog(stage, road, dialogs):
    ask(road, dialogs)
    dialogs.leave()
    road.daemon.wait_for_message(DBUS_ERROR, "Warning")
    road.settle()
    warnings = road.daemon.messages("Warning")
    assert len(warnings) == 2 and "disconnected" in warnings[1]
    stays_open(road, FakeDialogs(stage.session))


def test_an_error_of_the_dialog_service(road, dialogs):
    ask(road, dialogs).fail("no display")
    road.daemon.wait_for_message("no display", "Warning")
    assert road.daemon.messages("Warning") == [DBUS_ERROR, "no display"]
    stays_open(road, dialogs)


def test_a_user_who_does_not_answer(stage, dialogs):
    """The default answer is the engine's to apply: it hears nothing."""
    road = Road(stage, faketime="+0 x40")
    ask(road, dialogs, wire.default_answer(1))
    road.daemon.wait_for_message(DBUS_ERROR, "Warning", timeout=60)
    assert 319 <= time_between(road.daemon, "Got location request", DBUS_ERROR) <= 400
    assert replies(road) == []
    assert dialogs.unseen() == []


# ---- without an engine to answer

def test_an_answer_when_the_engine_has_gone(stage, road, dialogs):
    client = road.satellite_client()
    question = ask(road, dialogs)
    road.engine.refuse()
    road.engine.disconnect()
    road.daemon.wait_for_line("lodestard: ORVComm reconnection failed.")
    question.answer(1)
    dialogs.next("exit")
    road.daemon.wait_for_message("MsgSockClient::send: send() : Bad file descriptor", "Critical")
    assert road.lines(REPLYING) == [f"{REPLYING} true"]

    # The engine comes back: it hears of no old answer, and its requests are shown.
    road.engine.listen()
    road.engine.expect(wire.RegisterPrivacy)
    road.engine.expect(wire.GnssRequest, command=wire.START, session=client.id)
    ask(road, dialogs).answer(0)
    dialogs.next("exit")
    assert replies(road) == [NO]


def test_a_dialog_stays_open_when_its_engine_has_gone_and_may_be_withdrawn_when_it_is_back(road, dialogs):
    question = ask(road, dialogs, wire.client_name("Alice"))
    road.engine.disconnect()
    road.engine.expect(wire.SuplServers)
    road.engine.send(wire.location_request(1, 10, wire.client_name("Bob")), wire.location_request(4, 10))
    road.settle()
    assert road.lines(ALREADY_OPEN) == [ALREADY_OPEN]
    assert road.lines(COULD_NOT_CLOSE) == [f"{COULD_NOT_CLOSE} 10"]
    assert dialogs.unseen() == []
    road.engine.send(wire.location_request(4, 9))
    assert dialogs.next("locationRequest").arguments == (2, False, "Alice", "")
    dialogs.next("exit")
    question.answer(1)
    road.daemon.wait_for_message(DROPPED, "Debug")
    ask(road, dialogs, wire.client_name("Carol"), transaction=11).answer(0)
    dialogs.next("exit")
    assert replies(road) == [NO]
