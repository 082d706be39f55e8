from lib import LIST, daemon, equal, message

OTHER = "other@example.org"

with daemon(lists=(LIST, OTHER)) as server:
    client = server.raw()
    equal(client.begin([LIST, "nobody@example.jp", OTHER]), [250, 550, 250], "recipients")
    equal(client.data(message() + b".\r\n", replies=2), [250, 250], "answers after the data")
    equal(client.command("QUIT")[0], 221, "QUIT")
    client.close()
    for address in (LIST, OTHER):
        equal(len(server.archived(address)), 1, f"messages of {address}")
