"""Clients of a user as a process: they greet one after the other until one is turned away, say how many came in and what
the store said, and stay until they are told to go."""

import sys

from wire import DONE, HELLO, Client, Fields, hello

guests, refusal = [], ""
while len(guests) < int(sys.argv[2]) and not refusal:
    guest = Client(sys.argv[1], greet=False)
    try:
        guest.send((HELLO, hello("guest")))
    except BrokenPipeError:
        pass  # what it was told is there all the same
    kind, _, body = guest.receive()
    if kind == DONE:
        guests.append(guest)
    else:
        fields = Fields(body)
        refusal = f"{fields.number()} {fields.text()}"
print(f"{len(guests)} came in: {refusal}", flush=True)
sys.stdin.readline()
