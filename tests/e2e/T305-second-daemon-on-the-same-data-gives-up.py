import subprocess

from lib import BUILD, check, daemon, equal, still_works

with daemon() as server:
    second = subprocess.run([BUILD / "bin/mlistd", "--config", server.config],
                            capture_output=True, timeout=60)
    equal(second.returncode, 75, "exit status of the second")
    check(b"another mlistd" in second.stderr, f"it says why: {second.stderr!r}")
    still_works(server)
