import json

from lib import LIST, check, daemon, equal, message


def report(server, status=1):
    return server.ctl("list", "check", LIST, status=status)


with daemon() as server:
    for number in (1, 2, 3):
        server.accept(message(number=number))
    server.stop()
    equal(report(server, status=0), f"{LIST}: in order\n", "a good list")

    def broken(label, damage, expected, repair):
        damage()
        text = report(server)
        check(expected in text, f"{label}: {text}")
        check(repair in text, f"{label}: what to run: {text}")

    broken("a missing file", lambda: server.control("grant").unlink(),
           'the file "grant" is missing', "--repair")
    broken("a missing directory", lambda: server.control("jnl").rmdir(),
           'the directory "jnl" is missing', "--repair")
    broken("active behind the members",
           lambda: server.control("active").write_bytes(b"alice@example.net\r\n"),
           '"active" is not what the members give', "--repair")
    text = server.ctl("list", "check", "--repair", LIST)
    check("made empty: grant jnl" in text and '"active" rewritten' in text, text)
    equal(report(server, status=0), f"{LIST}: in order\n", "after the repair")
    equal(server.control("active").read_bytes(), b"alice@example.net\r\nbob@example.jp\r\n",
          "active after the repair")

    member = server.control("member").read_bytes()
    broken("roster lines", lambda: server.control("member").write_bytes(
        member + b"nostatus@example.jp\r\nodd@example.jp QUX\r\nALICE@example.net ON \r\n"),
        "line 3, 'nostatus@example.jp', has no status", "edit")
    text = report(server)
    check("line 4, 'odd@example.jp QUX', has a status that is none" in text, text)
    check("line 5, 'ALICE@example.net ON', is line 1 again" in text, text)
    server.control("member").write_bytes(member)

    init = server.control("init").read_bytes()
    broken("settings", lambda: server.control("init").write_bytes(
        init.replace(b"journal=1000\r\n", b" journal=5\r\n")), "wrong value", "edit")
    server.control("init").write_bytes(init.replace(b"journal=1000\r\n", b""))
    check("journal= is missing: the next posting empties the archive" in report(server), "journal")
    server.control("init").write_bytes(init)

    broken("a lost message", lambda: server.box("#msg/2").unlink(),
           "message 2 has no file", "--archive")
    text = server.ctl("list", "check", "--repair", "--archive", LIST)
    check("index made anew" in text, text)
    equal([record[0] for record in server.index()[1]], [1, 3], "numbers after the repair")

    (server.control("jnl") / "9").write_bytes(b"x")
    found = json.loads(server.ctl("--json", "list", "check", LIST, status=1))
    equal(found[0]["ok"], False, "ok in JSON")
    check("jnl/9" in found[0]["problems"][0]["problem"], found)
