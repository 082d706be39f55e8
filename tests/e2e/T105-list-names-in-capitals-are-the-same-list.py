from lib import daemon, equal, message

with daemon() as server:
    before = server.files("control", "archive")
    server.accept(message(), to="MyList@Example.JP")
    equal(len(server.archived()), 1, "messages in the archive")
    made = [name for name in server.files("control", "archive")
            if name not in before and "#msg" not in name and not name.endswith("/lock")]
    equal(made, [], "files made besides the message")
