"""A terminal, and what a program prints on it."""

import fcntl
import os
import pty
import struct
import subprocess
import termios


def on_terminal(house, columns, *command, **environment):
    """What a command that succeeds prints on a terminal of that width."""
    master, slave = pty.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    words = [*house.enter(), "env", *(f"{name}={value}" for name, value in environment.items()), *command]
    process = subprocess.Popen(words, stdin=slave, stdout=slave, stderr=subprocess.PIPE)
    os.close(slave)
    out = b""
    try:
        while piece := os.read(master, 65536):
            out += piece
    except OSError:  # the other end is closed
        pass
    os.close(master)
    assert process.wait() == 0, process.stderr.read()
    return out.decode().replace("\r\n", "\n")
