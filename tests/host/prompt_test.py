"""prompt_test.py VELOMIRA_HOST CATALOGUE: the prompt as a person at a terminal meets it."""
import fcntl
import os
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import termios
import time

HOST, CATALOGUE = sys.argv[1:]
PATIENCE = 60


class Terminal:
    def __init__(self, guest):
        self.master, slave = pty.openpty()
        self.process = subprocess.Popen(
            [HOST, "shell", "--guest", guest, "--catalogue", CATALOGUE], stdin=slave, stdout=slave, stderr=slave,
            env={**os.environ, "TERM": "vt100"}, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)
        self.said = ""
        self.await_("> ")

    def await_(self, pattern):
        deadline = time.monotonic() + PATIENCE
        while not (found := re.search(pattern, self.said)):
            assert time.monotonic() < deadline, f"{pattern!r} does not come; there is {self.said!r}"
            try:
                if not select.select([self.master], [], [], 1)[0]:
                    continue
                self.said += os.read(self.master, 4096).decode(errors="replace")
            except OSError as gone:
                raise AssertionError(f"{pattern!r} does not come; the last was {self.said!r}") from gone
        self.said = self.said[found.end():]

    def type(self, keys, pattern):
        while termios.tcgetattr(self.master)[3] & termios.ICANON:  # the editor does not read yet
            time.sleep(0.01)
        os.write(self.master, keys.encode())
        self.await_(pattern)
        if keys.endswith(("\r", "\x03")):
            self.await_("> ")


with tempfile.TemporaryDirectory(prefix="velomira-prompt-") as folder:
    guest = folder + "/guest"
    shell = Terminal(guest)
    shell.type("ver\t\r", "no difference")
    shell.type("remove lo\t\r", "Loom is off the catalogue")
    shell.type("show caf\t", '"Café Chess" ')
    shell.type("\x03", r"\^C")  # ends the line, not the guest
    shell.type("\x1b[A\x1b[A\r", "no difference")  # the line before the last one
    shell.type("re\t", r"remove\s+rename")
    shell.type("\x15onn\r", 'did you mean "on"')
    shell.type("on\r", "mirrors 9 applications")
    shell.process.send_signal(signal.SIGINT)
    shell.await_(r"\^C\s+> ")
    shell.type("open a.pgn\r", "Café Chess")
    shell.type("\x04", "registry is in")
    assert shell.process.wait(PATIENCE) == 0, shell.process.returncode
    again = Terminal(guest)
    again.type("\x1b[A\r", "Café Chess")  # what was typed is kept
    again.process.terminate()
    assert again.process.wait(PATIENCE) == 1, again.process.returncode
