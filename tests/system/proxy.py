"""Stands between a client and the store and cuts the connection at a place of the test's choice."""

import contextlib
import os
import select
import socket
import struct
import threading


class Proxy:
    """Forwards requests one by one. The request with the number `cut` (from 1) is the last of its connection: it is
    not forwarded, or, with `after`, forwarded but its answer is not. Whoever connects then waits for resume(), or,
    with `vanish`, finds nothing at the path."""

    def __init__(self, path, store, cut=None, after=False):
        self._path, self._store = path, store
        self.arm(cut, after)
        self.cut_kind = None
        self.is_cut = threading.Event()
        self._pause, self.is_paused, self._goes_on = None, threading.Event(), threading.Event()
        self._resumed = threading.Event()
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(8)
        threading.Thread(target=self._run, daemon=True).start()

    def arm(self, cut, after, vanish=False):
        """Counts the requests from here on; nobody may be asking."""
        self._requests, self._kind = 0, None
        self._after, self._vanish, self._cut = after, vanish, cut

    def arm_at(self, kind, number, after):
        """Counts the requests of one kind only."""
        self.arm(number, after)
        self._kind = kind

    def pause_at(self, kind, number):
        """That request of a kind, from 1, waits here for go_on()."""
        self._pause = [kind, number]

    def go_on(self):
        self._goes_on.set()

    def hang_up(self):
        """Cuts a connection over which nothing is asked."""
        self._hide()
        self._client.shutdown(socket.SHUT_RDWR)

    def resume(self):
        if self._vanish:
            os.rename(self._path + ".gone", self._path)
        self._resumed.set()

    def _hide(self):
        if self._vanish:
            os.rename(self._path, self._path + ".gone")

    def _run(self):
        self._serve()
        self.is_cut.set()
        self._resumed.wait()
        while True:
            self._serve()

    def _serve(self):
        client = self._client = self._listener.accept()[0]
        store = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        store.connect(self._store)
        answers = threading.Thread(target=self._forward_answers, args=(store, client), daemon=True)
        with contextlib.suppress(OSError), client, store:
            self._hold = threading.Event()
            answers.start()
            self._forward_requests(client, store)
            for end in (client, store):
                end.shutdown(socket.SHUT_RDWR)
        answers.join(20)

    def _forward_requests(self, client, store):
        while True:
            frame = self._frame(client)
            if not frame:
                return
            self._pause_before(frame[4])
            counts = self._kind in (None, frame[4])
            self._requests += counts
            cut = counts and self._requests == self._cut
            if cut and not self._after:
                self._note_cut(frame)
                return
            if cut:
                self._hold.set()
            store.sendall(frame)
            if cut:
                store.recv(1, socket.MSG_PEEK)  # the answer is there: the store has done it
                self._note_cut(frame)
                return

    def _pause_before(self, kind):
        if self._pause and kind == self._pause[0]:
            self._pause[1] -= 1
            if self._pause[1] == 0:
                self.is_paused.set()
                self._goes_on.wait()

    def _note_cut(self, frame):
        self.cut_kind = frame[4]
        self._hide()

    def _forward_answers(self, store, client):
        with contextlib.suppress(OSError):
            while True:
                store.recv(1, socket.MSG_PEEK)
                if self._hold.is_set():
                    return
                frame = self._frame(store)
                if not frame:
                    return
                client.sendall(frame)

    @staticmethod
    def _frame(stream):
        head = Proxy._exactly(stream, 4)
        return head and head + Proxy._exactly(stream, struct.unpack(">I", head)[0])

    @staticmethod
    def _exactly(stream, size):
        data = b""
        while len(data) < size:
            more = stream.recv(size - len(data))
            if not more:
                return b""
            data += more
        return data


class ByteProxy:
    """Forwards bytes, and cuts the connection behind a byte of the store's."""

    def __init__(self, path, store):
        self._store = store
        self._left = None  # bytes of the store up to the cut
        self._passed = b""
        self._lock = threading.Lock()
        self._hang_up, self._hung_up = socket.socketpair()
        self.is_cut = threading.Event()
        self._open = threading.Event()
        self._open.set()
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(8)
        threading.Thread(target=self._run, daemon=True).start()

    def cut_after(self, size):
        """Passes so many bytes more of what the store sends from here on, also over a new connection."""
        with self._lock:
            self.is_cut.clear()
            self._passed = b""
            self._left = size

    def frames(self, count):
        """The bytes of the first frames of the store since the last cut_after()."""
        size = 0
        for _ in range(count):
            size += 4 + struct.unpack(">I", self._passed[size:size + 4])[0]
        assert size <= len(self._passed)
        return size

    def has_passed(self, data):
        """Whether the store has sent it since the last cut_after()."""
        with self._lock:
            return data in self._passed

    @contextlib.contextmanager
    def outage(self):
        """Ends the connection and takes none meanwhile."""
        self._open.clear()
        self._hang_up.send(b"!")
        yield
        self._open.set()

    def _run(self):
        while True:
            self._open.wait()
            with contextlib.suppress(OSError):
                self._serve()
            if self._left == 0:
                self._left = None
                self.is_cut.set()

    def _serve(self):
        client = self._listener.accept()[0]
        store = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        with client, store:
            store.connect(self._store)
            going_on = True
            while going_on:
                ready = select.select([client, store, self._hung_up], [], [])[0]
                if self._hung_up in ready:
                    self._hung_up.recv(1)
                    return
                if client in ready:
                    data = client.recv(65536)
                    store.sendall(data)
                    going_on = bool(data)
                if store in ready:
                    going_on = self._pass(store.recv(65536), client) and going_on

    def _pass(self, data, client):
        """False at the end."""
        with self._lock:
            if not data or self._left == 0:
                return False
            data = data[:self._left]
            self._passed += data
            client.sendall(data)
            if self._left is not None:
                self._left -= len(data)
            return self._left != 0
