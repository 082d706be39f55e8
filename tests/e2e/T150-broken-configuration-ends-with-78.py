import subprocess

from lib import BUILD, PATIENCE, Daemon, check, equal

ROWS = [
    ("no TOML", "paths = = 1\n"),
    ("an unknown table", "[nothing]\nx = 1\n"),
    ("an unknown key", "[lmtp]\nlistne = \"127.0.0.1:2424\"\n"),
    ("a number where a text belongs", "[paths]\ndata = 7\n"),
    ("a number out of its range", "[lmtp]\nsessions = 0\n"),
    ("no endpoint", "[lmtp]\nlisten = \"everywhere\"\n"),
    ("no relay", "[relay]\ntarget = \"pigeon\"\n"),
    ("an unknown log target", "[log]\ntarget = \"paper\"\n"),
]


def run(program, *words):
    return subprocess.run([BUILD / "bin" / program, *words], capture_output=True,
                          stdin=subprocess.DEVNULL, timeout=PATIENCE)


server = Daemon()
try:
    for label, text in ROWS:
        server.config.write_text(text)
        done = run("mlistd", "--config", server.config)
        equal(done.returncode, 78, f"{label}: exit status of mlistd")
        check(str(server.config).encode() + b":" in done.stderr,
              f"{label}: the message names file and line: {done.stderr!r}")
        done = run("mlistctl", "--config", server.config, "list", "show")
        equal(done.returncode, 78, f"{label}: exit status of mlistctl")
    for program, words in (("mlistd", ()), ("mlistctl", ("list", "show"))):
        done = run(program, "--config", server.root / "missing.toml", *words)
        equal(done.returncode, 78, f"{program} without the file that was named")
finally:
    server.close()
