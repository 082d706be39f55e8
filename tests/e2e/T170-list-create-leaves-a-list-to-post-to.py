import stat

from lib import LIST, check, daemon, equal, message

INIT = (b"cmd=on on on on on on on on on on\r\nsubject=edit\r\nsubjectf=[%M:%S]\r\nvstrml=grant\r\n"
        b"vstrc=part\r\nprecedence=list\r\njournal=1000\r\ntime=13:00\r\nreplyedit=add\r\n"
        b"replyto=mylist@example.jp\r\ndefstatus=1\r\nconfirm=3\r\nmaxsummary=500\r\n"
        b"maxmsgsize=10240\r\nwebpasswd=\r\n")

with daemon(lists=()) as server:
    equal(server.ctl("list", "create", "MyList@Example.jp"), "created mylist@example.jp\n",
          "answer")
    names = {path.name: path for path in server.control().iterdir()}
    equal(sorted(names), sorted(["active", "confirm", "dgtstat", "digest", "grant", "init", "jnl",
                                 "lock", "member", "msg", "status", "subscribe"]),
          "control directory")
    equal(names.pop("init").read_bytes(), INIT, "init")
    for name, path in names.items():
        if path.is_file():
            equal(path.read_bytes(), b"", name)
        check(not path.stat().st_mode & stat.S_IRWXO, f"{name} is closed to others")
    equal(server.index(), (1, []), "archive")
    equal(sorted(path.name for path in server.box().iterdir()), ["#mix", "#msg"], "archive")
    equal(sorted(path.name for path in server.box().parent.iterdir()), ["INBOX"],
          "the archive's parent is a plain directory")
    server.accept(message())
    equal(len(server.archived()), 1, "messages in the archive")

    # What exists is not touched.
    before = {path: path.read_bytes() for path in server.control().rglob("*") if path.is_file()}
    server.ctl("list", "create", LIST, "--set=journal=5", status=73)
    check("exists" in server.complaint, server.complaint)
    equal({path: path.read_bytes() for path in server.control().rglob("*") if path.is_file()},
          before, "files of the existing list")
