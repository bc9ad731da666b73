"""What has to arrive, worked out from gpsd's own reports by code that shares nothing with the engine."""

from dataclasses import dataclass
from itertools import groupby

FIELDS = ("altHAE", "altMSL", "epx", "epy", "epv", "track", "epd", "magvar", "speed", "eps", "climb", "epc")
HIGHEST_PRN = 256


def has_fix(tpv):
    return tpv["mode"] >= 2 and "lat" in tpv and "lon" in tpv


def fullest(reports):
    """The report of an epoch that says most; of equals the last."""
    return max(enumerate(reports), key=lambda item: (sum(name in item[1] for name in FIELDS), item[0]))[1]


def epochs(reports):
    """gpsd's fullest report of each epoch with a fix, in order."""
    found = []
    tpvs = [report for report in reports if report["class"] == "TPV"]
    for (fixed, time), group in groupby(tpvs, key=lambda t: (has_fix(t), t.get("time"))):
        if fixed:
            found.append((time, list(group)))
    result = []
    for (time, group), (_, follower) in zip(found, found[1:] + [(None, None)]):
        # Before the receiver knows the time: the same fix follows with it.
        if time is None and follower and _place(follower[0]) == _place(fullest(group)):
            continue
        result.append(fullest(group))
    return result


def _place(report):
    return report["lat"], report["lon"]


@dataclass(frozen=True)
class Satellite:
    prn: int
    used: bool
    signal: float
    elevation: float
    azimuth: float


    def is_as(self, arrived):
        """Whether a satellite of the engine says the same, within what the protocol can say."""
        return ((self.prn, self.used) == (arrived.prn, arrived.used) and _near(self.signal, arrived.signal, 1 / 32)
                and _near(self.elevation, arrived.elevation, 0.011) and _near(self.azimuth, arrived.azimuth, 0.005))


def _near(named, arrived, limit):
    if named is None or arrived is None:
        return named is arrived
    return abs(named - arrived) <= limit + 1e-9


@dataclass
class Sky:
    satellites: list      # those that the engine protocol can name
    left_out: int         # those that it cannot
    searching: bool       # neither before nor after it is there a fix

    def is_as(self, arrived):
        return len(self.satellites) == len(arrived) and all(s.is_as(a) for s, a in zip(self.satellites, arrived))


def skies(reports):
    """The skies as they were complete, in order: gpsd repeats one while it grows."""
    result, previous = [], None
    for index, report in enumerate(reports):
        if report["class"] != "SKY":
            previous = previous if "time" in (previous or {}) else None
            continue
        if previous is not None and _grows(previous, report):
            if len(report["satellites"]) < len(previous["satellites"]):
                continue
            result.pop()
        result.append(_sky(report, _searching(reports, index)))
        previous = report
    return result


def _grows(earlier, later):
    if "time" in earlier or "time" in later:
        return earlier.get("time") == later.get("time")
    before, after = ({s["PRN"] for s in sky["satellites"]} for sky in (earlier, later))
    return before < after


def _searching(reports, index):
    before = next((r for r in reversed(reports[:index]) if r["class"] == "TPV"), None)
    after = next((r for r in reports[index:] if r["class"] == "TPV"), None)
    return not any(tpv and has_fix(tpv) for tpv in (before, after))


def _sky(report, searching):
    satellites = [Satellite(s["PRN"], s["used"], s.get("ss"), s.get("el"), s.get("az"))
                  for s in report["satellites"]]
    named = [s for s in satellites if s.prn <= HIGHEST_PRN]
    return Sky(named, len(satellites) - len(named), searching)
