"""One operation of the built library or of mlistctl, disturbed at each of its system calls in turn,
in a process of its own; then the list is put in order, the operation tried again, and mail posted.

Usage: disturb.py OPERATION...   (no operation: all of them; the table is below)

MLIST_BUILD names the build directory.  MLIST_DISTURB_STEP tries only every so many-th call.
"""

import errno
import fcntl
import os
import pathlib
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile

BUILD = pathlib.Path(os.environ["MLIST_BUILD"])
STEP = int(os.environ.get("MLIST_DISTURB_STEP", 1))
LIST = "mylist@example.jp"
ALICE, BOB, CAROL, DAVE, ERIN = ("alice@example.net", "bob@example.jp", "carol@example.com",
                                 "dave@example.org", "erin@example.com")
WHOLE = b"The last line.\r\n"
CONTROL = "control/example.jp/mylist/"
INBOX = "archive/example.jp/mylist/INBOX/"
# Of the thread that was killed; they go after a day.
WORK_FILE = re.compile(r"/jnl/|/msg/(cmdrpy|mldeny)\.\d+$")
SIDE_FILE = re.compile(r"\.(new1?|old|delnew1?|delold|making)$")
SANITIZER_REPORT = re.compile(rb"ERROR: AddressSanitizer|runtime error:|ERROR: LeakSanitizer")

# What a host answers with 451, whatever the exit.
FOR_LATER = ("502", "506", "508", "511", "517", "521", "523", "525", "526", "527", "529", "530",
             "531", "532", "534", "536")

# -- what is done to a call --------------------------------------------------------------------

CHANGES = "make,write,size,name,time"
EVERY = "make,open,read,write,size,sync,name,time,lock"


class Harm:
    def __init__(self, name, calls, harm, unnoticed=False):
        self.name, self.calls, self.harm = name, calls, str(harm)
        self.unnoticed = unnoticed      # the library does all the same what it was asked for


KILLS = (Harm("killed before", CHANGES, "kill"), Harm("killed amid", "write,name", "tear"))
ERRORS = tuple(errno.errorcode[number] for number in
               (errno.ENOSPC, errno.EIO, errno.EDQUOT, errno.EMFILE, errno.ENOMEM))
# Each of the calls fails with one of the errors, which take turns; or with all, one after the other.
IN_TURN = Harm("failed", EVERY, "in turn")
EACH = tuple(Harm(name, EVERY, getattr(errno, name)) for name in ERRORS)
UNNOTICED = (Harm("interrupted", "read,write,lock", errno.EINTR, unnoticed=True),
             Harm("half read", "read", "short", unnoticed=True))
HALVES = (Harm("half written", "write", "short"),)
THOROUGH = "MLIST_DISTURB_THOROUGH" in os.environ
FAILURES = (*(EACH if THOROUGH else (IN_TURN,)), *UNNOTICED, *HALVES)

# -- operations --------------------------------------------------------------------------------


class Operation:
    """`words` for the library, or `tool` words for mlistctl.  `settings` of the list, `before` what
    was done to it already."""

    def __init__(self, words=(), tool=(), before=("post:first", "post:second"), removes=(),
                 harms=KILLS, **settings):
        self.words, self.tool, self.before, self.removes = words, tool, before, removes
        self.harms, self.settings = harms, settings
        self.posting = bool(words) and words[0].startswith("post:")


OPERATIONS = {
    "posting-below-the-keep-count": Operation(["post:third"], harms=KILLS + FAILURES),
    "posting-at-the-keep-count": Operation(["post:third"], journal=2, removes=(1, 2, 3),
                                           harms=(*KILLS, IN_TURN)),
    "posting-with-nothing-kept": Operation(["post:third"], journal=0, removes=(1, 2, 3)),
    "denial": Operation(["deny:third"], vstrml="deny", harms=(*KILLS, IN_TURN)),
    "subscribe": Operation([f"command:{CAROL}:# subscribe"], confirm=0, harms=(*KILLS, IN_TURN)),
    "unsubscribe": Operation([f"command:{ALICE}:# unsubscribe"], confirm=0),
    "off": Operation([f"command:{BOB}:# off"]),
    "digest": Operation([f"command:{BOB}:# digest"]),
    "on": Operation([f"command:{DAVE}:# on"]),
    "asking-for-confirmation": Operation([f"command:{BOB}:# unsubscribe"], confirm=24),
    "confirming": Operation([f"command:{BOB}:# unsubscribe CONFIRMATION"], confirm=24,
                            before=("post:first", f"command:{BOB}:# unsubscribe"),
                            harms=(*KILLS, IN_TURN)),
    "sweeping-confirmations": Operation(["sweep"], confirm=24,
                                        before=(f"command:{BOB}:# unsubscribe",)),
    "push": Operation(["push"], harms=(*KILLS, IN_TURN)),
    # Failures are not for these: a mailbox that cannot be opened is rebuilt, without its flags.
    "expunge": Operation(["expunge"], before=("post:first", "post:second", "mark"), removes=(1,)),
    "flag": Operation(["flag"]),
    "rebuild": Operation(["rebuild"]),
    "list-create": Operation(tool=("list", "create", LIST), before=None,
                             harms=(*KILLS, IN_TURN)),
    # More than one each: all of them, or none.
    "member-add": Operation(tool=("member", "add", LIST, CAROL, ERIN), harms=(*KILLS, IN_TURN)),
    "member-remove": Operation(tool=("member", "remove", LIST, ALICE, DAVE)),
    "member-set": Operation(tool=("member", "set", "off", LIST, BOB, DAVE)),
}

# -- trees -------------------------------------------------------------------------------------


def fail(text):
    raise AssertionError(text)


def equal(got, want, what):
    if got != want:
        fail(f"{what}: got {got!r}, wanted {want!r}")


class Tree:
    """A list, what was submitted, and a copy of both from before, to start from again."""

    def __init__(self, work):
        self.root, self.saved = work / "now", work / "before"
        self.lists, self.sent = self.root / "lists", self.root / "sent"
        self.count = work / "count"
        self.count.write_bytes(bytes(8))
        self.config = work / "mlistd.toml"
        self.config.write_text(f'[paths]\ndata = "{self.root}"\n'
                               f'control = "{self.lists}/control"\n'
                               f'archive = "{self.lists}/archive"\n'
                               '[process]\nhostname = "mail.example.jp"\n')
        for folder in (self.lists / "control", self.lists / "archive", self.sent):
            folder.mkdir(parents=True)

    def save(self):
        shutil.copytree(self.root, self.saved)

    def restore(self):
        shutil.rmtree(self.root)
        shutil.copytree(self.saved, self.root)

    def files(self):
        """What is to be the old or the new: without side files and work files."""
        found = {}
        for path in self.lists.rglob("*"):
            name = str(path.relative_to(self.lists))
            if path.is_file() and not (SIDE_FILE.search(name) or WORK_FILE.search(name)):
                found[name] = comparable(name, path.read_bytes())
        return found


def comparable(name, content):
    """Without the times and ids that no two runs share."""
    if name.endswith("#mix"):       # nor \\Recent, which whoever looks takes off
        words = [list(record) for record in struct.iter_unpack("<4I", content[:len(content) & ~15])]
        for record in words[1:]:
            record[1] &= ~32
        if words:
            words[0][1] = 0
        return words, content[len(content) & ~15:]
    if name.endswith("/confirm"):
        return re.sub(rb"[0-9A-F]{16}|\d+", b"#", content)
    return content


# -- running -----------------------------------------------------------------------------------


class Run:
    """A process, disturbed or not; `answers` maps its words to exit and text."""

    def __init__(self, tree, words=(), tool=(), harm=None, at=0):
        command = [BUILD / "bin/mlistctl", "--config", tree.config, *tool] if tool else \
            [BUILD / "tests/one_operation", tree.root, *words]
        environment = {**os.environ, "TZ": "Asia/Tokyo"}
        if harm:
            tree.count.write_bytes(bytes(8))
            environment.update(
                LD_PRELOAD=str(BUILD / "tests/disturbed_calls.so"), DISTURB_BELOW=f"{tree.lists}/",
                # A list whose settings cannot be read runs on the usual ones, which is its way.
                DISTURB_SPARED="/init" if words else "",
                DISTURB_CALLS=f",{harm.calls},", DISTURB_AT=str(at),
                DISTURB_HARM=str(getattr(errno, ERRORS[at % len(ERRORS)]))
                if harm is IN_TURN else harm.harm,
                DISTURB_COUNT=str(tree.count), ASAN_OPTIONS="verify_asan_link_order=0:" +
                environment.get("ASAN_OPTIONS", ""))
        done = subprocess.run(command, env=environment, capture_output=True, timeout=60)
        self.status = done.returncode
        self.output = done.stdout.decode("latin-1")
        self.disturbed = struct.unpack("@q", tree.count.read_bytes())[0] >= at if harm else False
        if SANITIZER_REPORT.search(done.stderr):
            fail(done.stderr.decode("latin-1"))
        if self.status not in (0, -signal.SIGKILL) and not tool:
            fail(f"{command}: {self.status}\n{done.stderr.decode('latin-1')}")
        self.complaint = done.stderr.decode("latin-1")

    @property
    def killed(self):
        return self.status == -signal.SIGKILL

    def answers(self):
        """Of the library's words."""
        lines = (line.split(" ", 2) for line in self.output.splitlines())
        return {words[0]: (int(words[1]), words[2] if len(words) > 2 else "") for words in lines}


def prepare(tree, operation):
    """The list as it is before; the words of the operation with the confirmation's id in them."""
    words = list(operation.words)
    if operation.before is not None:
        settings = [f"--set={key}={value}" for key, value in operation.settings.items()]
        for tool in (("list", "create", LIST, *settings),
                     ("member", "add", LIST, ALICE, BOB, DAVE),
                     ("member", "set", "digest", LIST, DAVE)):
            equal(Run(tree, tool=tool).status, 0, " ".join(tool))
        Run(tree, operation.before)
        pending = (tree.lists / CONTROL / "confirm").read_bytes()
        found = re.search(rb"[0-9A-F]{16}", pending)
        words = [word.replace("CONFIRMATION", found.group().decode() if found else "")
                 for word in words]
    tree.save()
    return words


# -- what has to hold --------------------------------------------------------------------------


class Archive:
    def __init__(self, tree):
        content = (tree.lists / INBOX / "#mix").read_bytes()
        records = list(struct.iter_unpack("<4I", content))
        self.next = records[0][0]
        equal(records[0][2], len(records), "number of records")
        self.records = {uid: size for uid, _, _, size in records[1:]}
        equal(list(self.records), sorted(self.records), "order of the index")
        self.mails = {int(path.name): path.read_bytes()
                      for path in (tree.lists / INBOX / "#msg").iterdir()}


def check_archive(tree, before, removes):
    archive = Archive(tree)
    # A removed message is gone when the index says so; a kill may leave its file.
    equal({uid for uid in archive.mails if uid not in removes},
          {uid for uid in archive.records if uid not in removes}, "messages and index")
    equal(set(archive.records) - set(archive.mails), set(), "messages that are missing")
    for uid in archive.records:
        mail = archive.mails[uid]
        equal(len(mail), archive.records[uid], f"size of message {uid}")
        equal(mail.endswith(WHOLE), True, f"the end of message {uid}")
        equal(uid < archive.next, True, "next number")
    for uid, mail in before.items():
        if uid in archive.mails or uid not in removes:
            equal(archive.mails.get(uid), mail, f"message {uid}")
    return archive


def check_roster(tree):
    lines = [line.split(" ", 1) for line in
             (tree.lists / CONTROL / "member").read_bytes().decode().split("\r\n") if line]
    for name, word in (("active", "ON "), ("digest", "DGT")):
        wanted = "".join(f"{address}\r\n" for address, status in lines if status == word)
        equal((tree.lists / CONTROL / name).read_bytes().decode(), wanted, name)


def check_nothing_left(tree):
    left = [str(path) for path in tree.lists.rglob("*") if SIDE_FILE.search(path.name)]
    equal(left, [], "side files")
    for path in (tree.lists / CONTROL / "lock", tree.lists / INBOX / "#mix"):
        with open(path, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)


def check_sent(tree):
    """Who has got which number: never two mails the same.  The postings that were sent."""
    given = {}
    for path in tree.sent.iterdir():
        mail = path.read_bytes()
        number = re.search(rb"^X-Mail-Count: (\d+)\r$", mail, re.MULTILINE)
        if not number or b"Hello" not in mail.split(b"\r\n\r\n")[0]:
            continue
        who = re.search(rb"^Message-ID: <(\w+)@", mail, re.MULTILINE).group(1).decode()
        equal(given.setdefault(int(number.group(1)), who), who, f"who is number {number.group(1)}")
        equal(mail.endswith(WHOLE), True, "the end of what was sent")
    return set(given.values())


def check_answer(run, operation, harm):
    """Whether the operation was acknowledged; a failure of the machine's is for later."""
    if operation.tool:
        equal(run.status == 0 or bool(run.complaint), True, "a failure is told")
        acknowledged = run.status == 0
    else:
        code, text = run.answers()[operation.words[0].split(":")[0]]
        acknowledged = code == 0
        if not acknowledged and operation.words[0].split(":")[0] in ("post", "deny", "command",
                                                                     "push"):
            equal(code == 75 or (code == 69 and text[:3] in FOR_LATER), True, f"{code} {text}")
            equal(bool(re.match(r"\d{3} ", text)), True, f"a text: {text!r}")
    if harm.unnoticed and not operation.tool:
        equal(acknowledged, True, f"{harm.name} has to pass unnoticed: {run.output}{run.complaint}")
    return acknowledged


def check_old_or_new(tree, old, new, what):
    """File by file: between two of them there may have been a kill."""
    now = tree.files()
    for name in set(old) | set(new) | set(now):
        if name.endswith("/lock") or name.endswith("confirm.lock"):
            continue
        allowed = [state.get(name) for state in (old, new)]
        if now.get(name) not in allowed:
            fail(f"{what}: {name} is neither old nor new: {now.get(name)!r:.300}\n"
                 f"  old {allowed[0]!r:.300}\n  new {allowed[1]!r:.300}")


# -- the loop ----------------------------------------------------------------------------------


class Subject:
    def __init__(self, tree, operation):
        self.tree, self.operation = tree, operation
        self.words = prepare(tree, operation)
        self.old = tree.files()
        self.before = Archive(tree).mails if operation.before is not None else {}
        self.check_outcome(self.run())
        self.new = tree.files()
        self.go_on()
        self.wanted = {name: content for name, content in tree.files().items()
                       if name.startswith(CONTROL) and not name.endswith("dgtstat")}

    def run(self, **disturbance):
        return Run(self.tree, self.words, self.operation.tool, **disturbance)

    def check_outcome(self, run):
        if run.status != 0 or not self.operation.tool and any(
                code for code, _ in run.answers().values()):
            fail(f"undisturbed: {run.output}{run.complaint}")

    def go_on(self):
        """The same again, as whoever got no answer does, and a posting."""
        if self.operation.tool:
            self.run()
            if self.operation.before is None:
                Run(self.tree, tool=("member", "add", LIST, ALICE, BOB))
            run = Run(self.tree, ["post:next"])
        else:
            run = Run(self.tree, [*self.words, "post:next"])
        equal(run.answers()["post"], (0, ""), "posting afterwards")

    def disturb(self, harm, at):
        tree, operation = self.tree, self.operation
        tree.restore()
        run = self.run(harm=harm, at=at)
        if not run.disturbed:
            return False
        equal(run.killed, harm.harm in ("kill", "tear"), "killed")
        acknowledged = not run.killed and check_answer(run, operation, harm)
        if operation.before is not None:
            equal(Run(tree, ["start", "check"]).answers(), {"start": (0, ""), "check": (0, "")},
                  "putting the list in order")
            check_roster(tree)
            check_old_or_new(tree, self.old, self.new, "put in order")
        if operation.posting and acknowledged:
            equal("third" in check_sent(tree), True, "an acknowledged posting was sent")
        self.go_on()
        archive = check_archive(tree, self.before, operation.removes)
        sent = check_sent(tree)
        equal({"next"} | ({"third"} if operation.posting else set()) <= sent, True,
              f"what was sent: {sent}")
        if operation.settings.get("journal") != 0:
            equal(any(b"<next@" in mail for mail in archive.mails.values()), True, "in the archive")
        check_roster(tree)
        check_nothing_left(tree)
        now = tree.files()
        for name, content in self.wanted.items():
            equal(now.get(name), content, name)
        return True

    def disturb_everywhere(self):
        for harm in self.operation.harms:
            at = 1
            while self.try_one(harm, at):
                at += STEP
            if at == 1 and not self.operation.tool:
                fail(f"{harm.name}: no call to disturb")
            yield f"{harm.name} {(at - 1) // STEP}"

    def try_one(self, harm, at):
        try:
            return self.disturb(harm, at)
        except AssertionError as failure:
            raise AssertionError(f"{harm.name}, call {at}: {failure}") from None


def main(names):
    shm = pathlib.Path("/dev/shm")
    for name in names or OPERATIONS:
        # The process dies here, not the machine: what a sync costs need not be paid.
        work = pathlib.Path(tempfile.mkdtemp(
            prefix="mlist-disturb-", dir=shm if os.access(shm, os.W_OK) else None))
        try:
            print(f"{name}: ", end="", flush=True)
            print(", ".join(Subject(Tree(work), OPERATIONS[name]).disturb_everywhere()))
        finally:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main(sys.argv[1:])
