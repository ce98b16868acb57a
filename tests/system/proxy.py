"""Stands between a client and the store and cuts the connection at a request of the test's choice."""

import contextlib
import socket
import struct
import threading


class Proxy:
    """Forwards requests one by one. The request with the number `cut` (from 1) is the last of its connection: it is
    not forwarded, or, with `after`, forwarded but its answer is not. Whoever connects then waits for resume()."""

    def __init__(self, path, store, cut, after):
        self._store = store
        self._cut, self._after = cut, after
        self._requests = 0
        self.is_cut = threading.Event()
        self._resumed = threading.Event()
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(8)
        threading.Thread(target=self._run, daemon=True).start()

    def resume(self):
        self._resumed.set()

    def _run(self):
        self._serve()
        self.is_cut.set()
        self._resumed.wait()
        while True:
            self._serve()

    def _serve(self):
        client = self._listener.accept()[0]
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
            self._requests += 1
            cut = self._requests == self._cut
            if cut and not self._after:
                return
            if cut:
                self._hold.set()
            store.sendall(frame)
            if cut:
                store.recv(1, socket.MSG_PEEK)  # the answer is there: the store has done it
                return

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
