"""Clients of a crowd, as a process of their own. They go on until they are killed, and say when they are under way."""

import ast
import contextlib
import functools
import select
import socket
import struct
import sys
import threading
import time

import wire

OUT_OF_PLACES = 0.05  # seconds until one that was turned away tries again
GONE = (ConnectionError, FileNotFoundError)


def under_way():
    print("under way", flush=True)


def once(function):
    """What calls the function the first time only."""
    return functools.lru_cache(None)(function)


def closed(links, seconds):
    """The descriptors of those that the server has closed, whatever there is still to read; waits so long for one."""
    poll = select.poll()
    for link in links:
        poll.register(link, select.POLLRDHUP)
    return {descriptor for descriptor, _ in poll.poll(seconds * 1000)}


def connect(path):
    link = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    link.connect(path)
    return link


def take(link, size):
    buffer = bytearray(min(size, 1 << 20))
    while size > 0:
        count = link.recv_into(buffer, min(size, len(buffer)))
        if count == 0:
            raise ConnectionResetError
        size -= count


def pour(path, hello, hello_size, requests, size):
    """Has the same requests, whose answers have `size` bytes, on the way twice at any time."""
    with contextlib.suppress(*GONE):
        link = connect(path)
        link.sendall(hello)
        take(link, hello_size)
        link.sendall(requests)
        under_way()
        while True:
            link.sendall(requests)
            take(link, size)


def sip(path, hello, requests, size, pause):
    """Asks, takes so many bytes of the answer, pauses, takes as many, and so on. Comes back when it was closed."""
    on_start = once(under_way)
    while True:
        with contextlib.suppress(*GONE):
            link = connect(path)
            link.sendall(hello + requests)
            on_start()
            take(link, size)
            while not closed([link], pause):
                take(link, size)
        time.sleep(OUT_OF_PLACES)


def hold(path, number, seconds):
    """So many clients hold the transaction for so long at a time, in turns."""

    def one(client):
        while True:
            if wire.result_code(client.begin(60_000)) == 0:
                time.sleep(seconds)
                client.abort()

    clients = [wire.Client(path) for _ in range(number)]
    for client in clients:
        client.socket.settimeout(None)
        threading.Thread(target=one, args=(client,), daemon=True).start()
    under_way()
    threading.Event().wait()


def occupy(path, number):
    """Takes so many places as far as there are that many, and tries again for those it did not get or has lost."""
    on_start, places = once(under_way), []
    while True:
        with contextlib.suppress(AssertionError, OSError, struct.error):  # turned away
            while len(places) < number:
                places.append(wire.Client(path).socket)
        on_start()
        time.sleep(OUT_OF_PLACES)
        gone = closed(places, 0)
        places = [place for place in places if place.fileno() not in gone]


if __name__ == "__main__":
    action = {function.__name__: function for function in (pour, sip, hold, occupy)}[sys.argv[1]]
    action(*ast.literal_eval(sys.stdin.readline()))
