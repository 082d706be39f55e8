"""Killed at random moments under load, the daemon loses no mail that it answered with 250.

The clients do what a mail server does: a mail is sent again until there is a final answer.
MLIST_KILL_SECONDS and MLIST_KILL_SEED make it longer and different.
"""

import collections
import os
import random
import re
import sys
import threading
import time

from lib import LIST, MEMBERS, RawClient, check, daemon, equal, message, wait_for
from sink import Sink

SECONDS = float(os.environ.get("MLIST_KILL_SECONDS", 12))
SEED = int(os.environ.get("MLIST_KILL_SEED", 1))
OTHER = "other@example.org"
CLIENTS = 5
CAROL = "carol@example.com"
END = b"The last line.\r\n"
TOKEN = re.compile(rb"^Message-ID: (<[^>]*>)", re.MULTILINE)
NUMBER = re.compile(rb"^X-Mail-Count: (\d+)", re.MULTILINE)


def token(mail):
    return TOKEN.search(mail).group(1)


class Client(threading.Thread):
    """Sends one mail after the other over one connection, each until it is answered with 250."""

    def __init__(self, server, number, stop):
        super().__init__()
        self.server, self.number, self.stop_event = server, number, stop
        self.random = random.Random(f"{SEED}/{number}")
        self.connection = None
        self.answered = []          # (address, token)
        self.tries = 0
        self.wrong = []

    def run(self):
        for count in range(1, 1000000):
            if self.stop_event.is_set():
                return
            address, mail = self.compose(self.number * 1000000 + count)
            while not self.attempt(address, mail):
                if self.stop_event.is_set():
                    return
                time.sleep(0.01)        # as a mail server leaves a busy one in peace
            self.answered.append((address, token(mail)))

    def compose(self, number):
        body = b"x" * 70 + b"\r\n"
        return (self.random.choice((LIST, OTHER)),
                message(number=number, body=body * self.random.randrange(300) + END))

    def attempt(self, address, mail):
        self.tries += 1
        try:
            if self.connection is None:
                self.connection = RawClient(self.server.socket)
            code = self.transact(address, mail)
        except (OSError, EOFError, AssertionError):     # killed meanwhile: what the test is about
            self.hang_up()
            return False
        if code != 250:
            self.hang_up()
        if code >= 500:
            self.wrong.append(code)
        return code == 250

    def transact(self, address, mail):
        code = self.connection.begin([address])[0]
        return self.connection.data(mail + b".\r\n")[0] if code == 250 else code

    def hang_up(self):
        if self.connection is not None:
            self.connection.close()
        self.connection = None


class Commander(Client):
    """Switches a member's mail off and on again."""

    def compose(self, number):
        self.line = (b"# off\r\n", b"# on\r\n")[number % 2]
        return ("mylist-ctl@example.jp",
                message(sender=CAROL.encode(), number=number, body=self.line))


def kill_again_and_again(server, seconds, answered):
    """At moments of starting, of serving, and of serving under full load; which ones is chance, so
    nothing is waited for in between."""
    choose = random.Random(SEED)
    end = time.monotonic() + seconds
    kills = 0
    while time.monotonic() < end:
        server.launch()
        if kills % 4 == 0:
            time.sleep(choose.random() * 0.06)
        else:
            before = answered()
            wait_for("mlistd to answer", server.answers)
            if kills % 4 == 1:
                wait_for("an answered mail", lambda: answered() > before)
            time.sleep(choose.random() * 0.4)
        server.kill()
        kills += 1
    server.start()
    return kills


def expect_archive(server, address, answered):
    """What was answered is there, whole, under numbers without gaps; how often it is there twice."""
    mails = server.archived(address)
    numbers = [int(NUMBER.search(mail).group(1)) for mail in mails]
    equal(numbers, list(range(1, len(mails) + 1)), f"numbers in {address}")
    equal([mail for mail in mails if not mail.endswith(END)], [], f"short mails in {address}")
    next_number, records = server.index(address)
    equal(next_number, len(mails) + 1, f"next number of {address}")
    equal([record[0] for record in records], numbers, f"index of {address}")
    equal([record[3] for record in records], [len(mail) for mail in mails], "sizes in the index")
    kept = collections.Counter(map(token, mails))
    lost = [one for where, one in answered if where == address and one not in kept]
    equal(lost, [], f"answered, but not archived in {address}")
    return sum(kept.values()) - len(kept)


def expect_lists_in_order(server):
    """Only the trace of a kill between archive and queue may be left."""
    report = server.ctl("list", "check", status=None)
    wrong = [line for line in report.splitlines() if not line.startswith("    ")
             and "in order" not in line and "archived but not distributed" not in line]
    equal(wrong, [], "problems of the lists")


def expect_copies(mails_of, answered, member):
    """Each answered mail came at least once; how many came twice under one number, and under two."""
    mails = [mail.replace(b"\r\n", b"\n") for mail in mails_of(member)]
    mails = [mail for mail in mails if NUMBER.search(mail)]
    copies = collections.Counter((token(mail), NUMBER.search(mail).group(1),
                                  b"other" in mail.split(b"X-ML-Name: ")[1][:8])
                                 for mail in mails)
    tokens = {one for one, _, _ in copies}
    lost = [one for _, one in answered if one not in tokens]
    equal(lost, [], f"answered, but not sent to {member}")
    equal([mail for mail in mails if not mail.endswith(END.replace(b"\r\n", b"\n"))], [],
          f"short mails to {member}")
    return sum(copies.values()) - len(copies), len(copies) - len(tokens)


def expect_last_command(server, commander, line_in_flight):
    """The last command that was answered holds, or the one that was under way."""
    status = next(line.split()[1] for line in server.ctl("member", "list", LIST).splitlines()
                  if line.startswith(CAROL))
    check(status in {"on", "off"}, f"status of {CAROL}: {status}")
    active = server.control("active").read_bytes().splitlines()
    equal(CAROL.encode() in active, status == "on", f"{CAROL} among the active members")
    if commander.answered:
        last = commander.answered[-1][1]
        wanted = {"on" if int(last[2:-len("@example.net>")]) % 2 else "off"}
        if line_in_flight:
            wanted.add("on" if line_in_flight == b"# on\r\n" else "off")
        check(status in wanted, f"{CAROL} is {status}, wanted {wanted}")


def run(name, relay, mails_of):
    with daemon({"relay": relay}, lists=(LIST, OTHER), start=False, journal=1000000) as server:
        server.ctl("member", "add", LIST, CAROL)
        stop = threading.Event()
        clients = [Client(server, number, stop) for number in range(CLIENTS)]
        commander = Commander(server, CLIENTS, stop)
        for client in (*clients, commander):
            client.start()
        kills = kill_again_and_again(
            server, SECONDS / 2, lambda: sum(len(client.answered) for client in clients))
        stop.set()
        for client in (*clients, commander):
            client.join()
            client.hang_up()
            equal(client.wrong, [], "refusals of good mail")
        expect_last_command(server, commander, commander.line)
        for address in (LIST, OTHER):           # finishes what the last kill left of the archive
            server.accept(message(number=999, body=END), to=address)
        wait_for("an empty queue", server.queue_is_empty)

        answered = [pair for client in clients for pair in client.answered]
        check(len(answered) > kills // 4, f"{len(answered)} mails for {kills} kills: no load")
        twice_archived = sum(expect_archive(server, address, answered)
                             for address in (LIST, OTHER))
        expect_lists_in_order(server)
        doubles = [expect_copies(mails_of(server), answered, member) for member in MEMBERS]
        print(f"{name}: {kills} kills, {len(answered)} mails answered "
              f"({sum(client.tries for client in clients)} tries), "
              f"{len(commander.answered)} commands; "
              f"{twice_archived} archived under a second number; "
              f"to {' and '.join(MEMBERS)}: "
              f"{' and '.join(str(again) for _, again in doubles)} sent under a second number, "
              f"{' and '.join(str(same) for same, _ in doubles)} sent twice under one")
        sys.stdout.flush()
        return doubles


same_number = [same for same, _ in run("outbox", {}, lambda server: server.outbox)]
equal(same_number, [0, 0], "mails twice in a Maildir under one number")
sink = Sink()
run("relay", {"target": sink.target, "retry_min": 1, "retry_max": 1},
    lambda server: sink.received_by)
