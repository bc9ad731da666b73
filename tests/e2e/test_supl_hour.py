"""An hour of network clients at 4, 10 and 3 s: every step of the daemon, judged by a model of the rules.

The daemon's log tells when each step was taken, to the millisecond of the daemon's own clock. The model
takes the steps at these moments and says who is due, who is asked for, who gets the answer, and in which
phase each row must then stand. A timer that is late moves a step; it cannot make a right daemon look wrong.
"""

import math
import re
import time

import pytest

from harness import client as app
from harness import files, wire
from harness.road import Road, latitudes

PACE = 75
HOUR = 3600 * 1000  # ms
TOLERANCE = 100
KINDS = [(kind, re.compile(pattern + "$")) for kind, pattern in (
    ("add", r"Scheduler::addClient: id: (\d+), interval: (\d+)"),
    ("retime", r"Scheduler::setClientInterval: id: (\d+), interval: (\d+)"),
    ("remove", r"Scheduler::removeClient: id: (\d+)"),
    ("removed", r"Removed index:  (\d+)"),
    ("step", r"Scheduler::nextStep"),
    ("table", r"### Scheduler::dumpClientTable: clients: (\d+) ###"),
    ("row", r"id: (\d+), interval: (\d+)s, elapsed: (\d+)ms"),
    ("plan", r"Scheduler::nextTimeStep: next step in (-?\d+)ms"),
    ("asked", r"PositionDaemon: Sending SUPL Location request to ORV\."),
    ("answered", r"PositionDaemon::onPositionUpdateSUPL"),
    ("sent", r"Sending update to ClientId:  (\d+)"),
)]


class Row:
    def __init__(self, identifier, interval, phase):
        self.id, self.interval, self.phase = identifier, interval, phase

    def left(self, now):
        return 1000 * self.interval - (now - self.phase)


class Model:
    """Reads the daemon's lines in their order and expects each that the rules demand."""

    def __init__(self, texts):
        self.events = []
        for text in texts:
            for kind, pattern in KINDS:
                found = pattern.match(text)
                if found:
                    self.events.append((kind, *map(int, found.groups())))
        self.at = 0
        self.now = 0
        self.rows, self.due, self.taken = [], [], True
        self.steps = self.asked = self.answers = 0
        self.receivers = {}  # id: numbers of the answers that it gets
        self.aligned = []    # what a row got into phase with: (interval, interval of the other, period)

    def run(self):
        while self.at < len(self.events):
            kind, *values = self.events[self.at]
            getattr(self, f"on_{kind}", self.unexpected)(*values)
        return self

    def unexpected(self, *_):
        raise AssertionError(f"nothing leads to {self.events[self.at]}, event {self.at}; "
                             f"before it {self.events[max(0, self.at - 12):self.at]}")

    def take(self, kind):
        assert self.at < len(self.events) and self.events[self.at][0] == kind, f"{kind} expected: " + str(
            self.events[max(0, self.at - 12):self.at + 2])
        self.at += 1
        return self.events[self.at - 1][1:]

    # ---- what the lines tell

    def read_table(self, unknown=None):
        """The listing: the moment that all rows agree on. The phase of `unknown` is taken from it."""
        assert self.take("table") == (len(self.rows),)
        elapsed = []
        for row in self.rows:
            identifier, interval, since = self.take("row")
            assert (identifier, interval) == (row.id, row.interval)
            elapsed.append(since)
        moments = {row.phase + since for row, since in zip(self.rows, elapsed) if row is not unknown}
        assert len(moments) <= 1, f"rows out of phase at event {self.at}: {moments}"
        moment = moments.pop() if moments else self.now
        assert moment >= self.now
        if unknown:
            unknown.phase = moment - elapsed[self.rows.index(unknown)]
        self.now = moment
        return moment

    def read_plan(self):
        (wait,) = self.take("plan")
        right = self.shortest(self.now)
        assert wait <= right, "planned later than the next row is due"
        self.now += right - wait  # the plan was made a little later

    def shortest(self, now):
        return min([24 * HOUR] + [row.left(now) for row in self.rows])

    # ---- the rules

    def on_step(self, new=None):
        self.take("step")
        now = self.read_table(unknown=new)
        if new:
            assert new.left(now) <= 0, "a new row is due at once"
        if self.taken:
            self.due, self.taken = [], False
        began = False
        for row in self.rows:
            if now - row.phase > 1000 * row.interval - TOLERANCE:
                began = began or not self.due
                if row.id not in self.due:
                    self.due.append(row.id)
                row.phase = now
        if began:
            self.take("asked")
            self.asked += 1
        self.steps += 1
        self.read_plan()

    def on_add(self, *_):
        identifier, interval = self.take("add")
        self.rows.append(Row(identifier, interval, 0))
        self.on_step(new=self.rows[-1])
        if len(self.rows) == 1:
            self.read_table()
        else:
            self.align(self.rows[-1])

    def on_retime(self, *_):
        identifier, interval = self.take("retime")
        (row,) = [row for row in self.rows if row.id == identifier]
        assert row.interval != interval
        row.interval = interval
        (wait,) = self.take("plan")
        before = self.now
        self.align(row)
        # Planned some time before the listing.
        assert self.shortest(self.now) <= wait <= self.shortest(before)

    def align(self, row):
        """The listing after a row was put in phase must show it there."""
        before, others = self.now, [other for other in self.rows if other is not row]
        divisors = [math.gcd(row.interval, other.interval) for other in others]
        best = max(divisors)
        reference = others[divisors.index(best)] if best > 1 else self.rows[0]
        now = self.read_table(unknown=row)
        period = 1000 * best
        assert (row.phase - reference.phase) % period == 0, f"{row.id} is out of phase with {reference.id}"
        assert before - period < row.phase <= now
        self.aligned.append((row.interval, reference.interval, period))

    def on_remove(self, *_):
        (identifier,) = self.take("remove")
        (index,) = [index for index, row in enumerate(self.rows) if row.id == identifier]
        assert self.take("removed") == (index,)
        del self.rows[index]
        if identifier in self.due:
            self.due.remove(identifier)
        if self.rows:
            self.read_plan()
        self.read_table()

    def on_answered(self, *_):
        self.take("answered")
        for identifier in self.due:
            assert self.take("sent") == (identifier,)
            self.receivers.setdefault(identifier, []).append(self.answers)
        self.answers += 1
        self.taken = True


def answer_for(road, seconds, answers):
    """Answers every request at once, each with a place of its own, for so long on the daemon's clock."""
    end = time.monotonic() + seconds / PACE
    while time.monotonic() < end:
        request = road.engine.expect(wire.SuplRequest)
        answers.append(request.request)
        road.supl(len(answers) / 100)


def test_an_hour_of_three_clients(stage):
    files.marker("use_supl")
    road = Road(stage, faketime=f"+0 x{PACE}")
    answers = []
    clients = {}
    for interval in (4, 10, 3):
        clients[interval] = road.client(app.NON_SATELLITE, 1000 * interval)
        answer_for(road, 30, answers)
    for _ in range(6):  # now and then one starts afresh, or changes its mind
        answer_for(road, 585, answers)
        clients[10].stop()
        clients[10].configure(app.START)
        clients[4].configure(app.SET_INTERVAL, interval=6000)
        answer_for(road, 15, answers)
        clients[4].configure(app.SET_INTERVAL, interval=4000)
    for client in clients.values():
        client.stop()
    road.settle(*clients.values())

    model = Model(road.daemon.messages()).run()
    assert model.now >= HOUR
    assert model.rows == []
    sent = [request.request for request in road.engine.all(wire.SuplRequest)]
    assert sent == [number % 4096 for number in range(1, model.asked + 1)]
    assert model.answers == len(answers)
    for client in clients.values():
        assert latitudes(client.fixes()) == [pytest.approx((number + 1) / 100) for number in model.receivers[client.id]]
    # Of what three clients wait for, some is shared, and what joined later got into phase.
    assert len(answers) < sum(map(len, model.receivers.values()))
    assert set(model.aligned) == {(10, 4, 2000), (3, 4, 1000), (6, 3, 3000), (4, 10, 2000)}
