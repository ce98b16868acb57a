"""Holds a listening socket, as a service manager does, and starts programs that serve it.

activator.py PATH: each line of the input is a command, in JSON. The answer to it is "started PID".
"""

import json
import os
import signal
import socket
import sys

listener = socket.socket(socket.AF_UNIX)
listener.bind(sys.argv[1])
listener.listen(128)
signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # nobody waits for the programs
print("listening", flush=True)
for line in sys.stdin:
    command = json.loads(line)
    child = os.fork()
    if child == 0:
        signal.signal(signal.SIGCHLD, signal.SIG_DFL)
        os.dup2(listener.fileno(), 3)
        os.set_inheritable(3, True)
        os.execvpe(command[0], command, {**os.environ, "LISTEN_PID": str(os.getpid()), "LISTEN_FDS": "1"})
    print("started", child, flush=True)
