"""A network that can be bad: a TCP proxy in front of a server on this machine, whose ways change while it runs."""
import asyncio
import socket
import struct
import threading
import time

TICK_S = 0.02
# Little of the stream hides in buffers: the receiver's is small, and the sender's, which its system makes large
# for the huge segments of the loopback interface, is that of a usual network.
RECEIVE_BYTES, SEGMENT_BYTES = 16384, 1448


class HostileProxy:
    """Listens on `port` until `close`. Every method may be called at any time, from any thread; each works on the
    connections that there are and on those to come."""

    def __init__(self, target_port):
        self.target_port, self.port = target_port, 0
        self.bytes_per_s, self.muted = None, False
        self.passed_bytes = 0  # towards the server
        self.acceptor, self.connections = set(), set()  # tasks
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()
        self.listen()

    def forward(self, bytes_per_s=None):
        """Takes so much of the stream, or all."""
        self.bytes_per_s, self.muted = bytes_per_s, False

    def stall(self):
        """Connections stay open, and nothing is read from them."""
        self.forward(0)

    def mute(self):
        """Connections are accepted, and nobody ever answers."""
        self.muted = True

    def reset(self):
        """All connections break as when a machine restarts; new ones are accepted."""
        self._run(self._cancel(self.connections))

    def refuse(self):
        """Nobody listens; what was connected breaks."""
        self._run(self._cancel(self.acceptor))
        self.reset()

    def listen(self):
        """Again, at the same port."""
        if not self.acceptor:
            self._run(self._listen())

    def close(self):
        if self.loop.is_closed():
            return
        self.refuse()
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()
        self.loop.close()

    # ---- on the loop's thread

    def _run(self, coroutine):
        asyncio.run_coroutine_threadsafe(coroutine, self.loop).result(10)

    async def _listen(self):
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BYTES)
        listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, SEGMENT_BYTES)
        listener.bind(("127.0.0.1", self.port))
        listener.listen(64)
        listener.setblocking(False)
        self.port = listener.getsockname()[1]
        self._start(self._accept(listener), self.acceptor)

    def _start(self, coroutine, tasks):
        task = self.loop.create_task(coroutine)
        tasks.add(task)
        task.add_done_callback(tasks.discard)

    async def _cancel(self, tasks):
        ending = list(tasks)
        for task in ending:
            task.cancel()
        await asyncio.gather(*ending, return_exceptions=True)

    async def _accept(self, listener):
        with listener:
            while True:
                client, _ = await self.loop.sock_accept(listener)
                self._start(self._serve(client), self.connections)

    async def _serve(self, client):
        with client, socket.socket() as server:
            try:
                client.setblocking(False)
                server.setblocking(False)
                while self.muted:
                    await asyncio.sleep(TICK_S)
                await self.loop.sock_connect(server, ("127.0.0.1", self.target_port))
                async with asyncio.TaskGroup() as both:
                    both.create_task(self._pass_on(client, server, True))
                    both.create_task(self._pass_on(server, client, False))
            except (asyncio.CancelledError, OSError, ExceptionGroup):  # broken off, or one side broke
                for end in client, server:
                    end.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    async def _pass_on(self, source, sink, limited):
        due = time.monotonic()
        while True:
            rate = self.bytes_per_s if limited else None
            if self.muted or rate == 0:
                await asyncio.sleep(TICK_S)
                continue
            data = await self.loop.sock_recv(source, 65536 if rate is None else max(1, int(rate * TICK_S)))
            if not data:
                sink.shutdown(socket.SHUT_WR)
                return
            await self.loop.sock_sendall(sink, data)
            self.passed_bytes += len(data) if limited else 0
            due = max(due, time.monotonic() - TICK_S)
            if rate:
                due += len(data) / rate
                await asyncio.sleep(due - time.monotonic())
