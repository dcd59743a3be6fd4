"""A daemon written in the test: it listens on a Unix socket, records each request line, and lets
`answer(connection, line)` do what it likes with the connection. It stands where a simulator
process would (poll, kill, wait)."""
import contextlib
import os
import socket
import threading


class FakeDaemon:
    def __init__(self, path, answer, reads=True, heard=None):
        """`reads` false: accepts and never reads nor closes. `heard(line)` is told of each request."""
        self.answer, self.reads = answer, reads
        self.requests, self.held = [], []
        self.heard = heard or self.requests.append
        if os.path.lexists(path):
            os.unlink(path)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen(16)
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            if not self.reads:
                self.held.append(connection)
                continue
            # A client may leave without a word, or before the answer.
            with connection, contextlib.suppress(OSError):
                line = connection.makefile("rb").readline().rstrip(b"\n").decode()
                if line:
                    self.heard(line)
                self.answer(connection, line)

    def die(self):
        """Stops listening and leaves the socket file behind, as a crashed daemon does."""
        self.listener.close()
        for connection in self.held:
            connection.close()

    def poll(self):
        return None

    def kill(self):
        self.die()

    def wait(self):
        return 0
