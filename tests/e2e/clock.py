"""The time of the day of the programs under test, set while they run."""

import datetime
import struct
import time

from lib import BUILD, wait_for

TOKYO = datetime.timezone(datetime.timedelta(hours=9))


class Clock:
    """To be made before the programs start; until it is set it shows the real time."""

    def __init__(self, server):
        self.file = server.root / "clock"
        self._shift(0)
        server.environment.update(
            LD_PRELOAD=str(BUILD / "tests/shifted_clock.so"), SHIFTED_CLOCK=str(self.file),
            ASAN_OPTIONS="verify_asan_link_order=0:" + server.environment.get("ASAN_OPTIONS", ""))

    def set(self, when):
        """A datetime, or "2026-11-18 09:24:30", of Tokyo.  It runs on from there."""
        if isinstance(when, str):
            when = datetime.datetime.strptime(when, "%Y-%m-%d %H:%M:%S")
        self._shift(int(when.replace(tzinfo=TOKYO).timestamp()) - int(time.time()))

    def _shift(self, seconds):
        # In place: the programs have mapped it.
        with open(self.file, "r+b" if self.file.exists() else "wb") as file:
            file.write(struct.pack("@q", seconds))


def day_after_tomorrow(hour, minute, second=0):
    """Late enough that lists made just now have had a digest minute before."""
    day = datetime.datetime.now(TOKYO).date() + datetime.timedelta(days=2)
    return datetime.datetime.combine(day, datetime.time(hour, minute, second))


def pushed_on(server, day, address):
    """Waits until the daemon has recorded the list's push of that day."""
    record = server.data / "digest" / f"{address}.day"
    wait_for(f"{address} to be pushed on {day}",
             lambda: record.exists() and record.read_text() == f"{day}\n")
