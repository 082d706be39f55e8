import json

from lib import LIST, check, daemon, equal, message

OTHER = "other@example.org"

with daemon(lists=(LIST, OTHER), subjectf="(%M)") as server:
    server.accept(message())
    one = json.loads(server.ctl("--json", "list", "show", LIST))
    equal(one["members"], {"on": 2, "off": 0, "digest": 0}, "members")
    equal(one["archive"]["messages"], 1, "messages")
    equal(one["archive"]["next_number"], 2, "next number")
    equal(one["settings"]["subjectf"], "(%M)", "subject format")
    equal(one["settings"]["cmd"], "on on on on on on on on on on", "commands")
    every = json.loads(server.ctl("list", "show", "--json"))
    equal([entry["list"] for entry in every], [LIST, OTHER], "all lists")
    text = server.ctl("list", "show", LIST)
    check("members     2 on, 0 off, 0 digest" in text and "next number 2" in text, text)
    server.ctl("list", "show", "nobody@example.jp", status=67)
    server.ctl("list", "shew", status=2)
    server.ctl(status=2)
