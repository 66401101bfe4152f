#!/usr/bin/python3
"""A message bus that misbehaves: bus-proxy.py SOCKET BUS_SOCKET RULE_FILE.

Programs that connect to SOCKET talk to the bus at BUS_SOCKET. To programs whose path ends in "/KeltoInstaller", and on their
sd-bus connections only, the messages that come from the bus are numbered by the member they answer or carry: "Hello#1". Each is
printed, and the one that the rule file names ("lose Hello#1", "delay Hello#1", "double Hello#1", or "*" for every one) is
lost, held back for as many seconds as the rule says last ("delay * 0.2"), or sent twice.

The bus takes this process for every program behind it; in what it tells about its connections the numbers are put right.
"""
import array
import collections
import os
import pathlib
import selectors
import socket
import struct
import sys
import time

CALL, SIGNAL = 1, 4
MOST_DESCRIPTORS = 16


def align(place, step):
    return (place + step - 1) // step * step


def field(message, wanted):
    """A header field that is a string, or the reply serial (5) or the number of descriptors (9)."""
    place, end = 16, 16 + struct.unpack_from("<I", message, 12)[0]
    while place < end:
        place = align(place, 8)
        code, kind = message[place], chr(message[place + 2])
        place += 4
        if kind == "g":
            length = message[place]
            value = message[place + 1:place + 1 + length].decode()
            place += length + 2
        else:
            number = struct.unpack_from("<I", message, align(place, 4))[0]
            place = align(place, 4) + 4
            value = number
            if kind != "u":
                value = message[place:place + number].decode()
                place += number + 1
        if code == wanted:
            return value
    return None


def body_of(message):
    return align(16 + struct.unpack_from("<I", message, 12)[0], 8)


class Half:
    """The stream from one side: bytes that are not a whole message yet, and descriptors that belong to the next ones."""

    def __init__(self, end):
        self.end = end
        self.bytes = b""
        self.descriptors = collections.deque()

    def read(self):
        """False at the end."""
        data, ancillary, _, _ = self.end.recvmsg(65536, socket.CMSG_SPACE(MOST_DESCRIPTORS * 4))
        for level, kind, content in ancillary:
            if (level, kind) == (socket.SOL_SOCKET, socket.SCM_RIGHTS):
                self.descriptors.extend(array.array("i", content[:len(content) // 4 * 4]))
        self.bytes += data
        return bool(data)

    def messages(self):
        while len(self.bytes) >= 16:
            body, _, header = struct.unpack_from("<III", self.bytes, 4)
            length = align(16 + header, 8) + body
            if len(self.bytes) < length:
                return
            message, self.bytes = self.bytes[:length], self.bytes[length:]
            count = field(message, 9) or 0
            yield message, [self.descriptors.popleft() for _ in range(count)]


def send(end, data, descriptors=()):
    ancillary = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))] if descriptors else []
    sent = end.sendmsg([data], ancillary)
    end.sendall(data[sent:])


class Connection:
    def __init__(self, proxy, client):
        self.proxy = proxy
        bus = socket.socket(socket.AF_UNIX)
        bus.connect(proxy.bus)
        self.client, self.bus = Half(client), Half(bus)
        self.process = struct.unpack("3i", client.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))[0]
        self.is_judged = os.readlink(f"/proc/{self.process}/exe").endswith("/KeltoInstaller")
        self.has_begun = False  # the part of the conversation that consists of messages
        self.calls = {}
        self.waiting = collections.deque()  # (when, message, descriptors) for the client

    def from_client(self):
        if not self.client.read():
            return False
        if not self.has_begun:
            before, begin, after = self.client.bytes.partition(b"BEGIN\r\n")
            if not begin:
                self.is_judged = False  # other libraries wait for the bus before they begin
                send(self.bus.end, self.client.bytes)
                self.client.bytes = b""
                return True
            send(self.bus.end, before + begin)
            self.client.bytes, self.has_begun = after, True
        for message, descriptors in self.client.messages():
            if message[1] == CALL:
                self.calls[struct.unpack_from("<I", message, 8)[0]] = (field(message, 3), message[body_of(message):])
            send(self.bus.end, message, descriptors)
            for each in descriptors:
                os.close(each)
        return True

    def from_bus(self):
        if not self.bus.read():
            return False
        # Messages begin with the letter of their byte order, the lines before them do not.
        while self.bus.bytes[:1] != b"l" and b"\r\n" in self.bus.bytes:
            line, end, self.bus.bytes = self.bus.bytes.partition(b"\r\n")
            send(self.client.end, line + end)
        if self.bus.bytes[:1] == b"l":
            for message, descriptors in self.bus.messages():
                self.pass_on(self.corrected(message), descriptors)
        return True

    def corrected(self, message):
        member, asked = self.calls.get(field(message, 5), (None, b""))
        if member == "Hello" and message[1] == 2:
            start = body_of(message)
            length = struct.unpack_from("<I", message, start)[0]
            self.proxy.processes[message[start + 4:start + 4 + length]] = self.process
        process = next((process for name, process in self.proxy.processes.items() if asked[4:4 + len(name) + 1] == name + b"\0"), None)
        if process is None or message[1] != 2:
            return message
        place = body_of(message)
        if member == "GetConnectionCredentials":
            label = message.find(b"ProcessID\0", place)
            place = align(label + len(b"ProcessID\0") + 3, 4) if label > 0 else None
        elif member != "GetConnectionUnixProcessID":
            place = None
        return message if place is None else message[:place] + struct.pack("<I", process) + message[place + 4:]

    def pass_on(self, message, descriptors):
        rule, seconds = None, 0.0
        if self.is_judged and message[1] != CALL:
            member = field(message, 3) if message[1] == SIGNAL else self.calls.get(field(message, 5), ("?",))[0]
            rule, seconds = self.proxy.rule_for(self.process, member)
        if rule == "lose":
            for each in descriptors:
                os.close(each)
            return
        self.waiting.append((time.monotonic() + seconds, message, descriptors, 2 if rule == "double" else 1))

    def deliver(self):
        """Sends what is due. A message that is held back holds those behind it."""
        while self.waiting and self.waiting[0][0] <= time.monotonic():
            _, message, descriptors, times = self.waiting.popleft()
            for _ in range(times):
                send(self.client.end, message, descriptors)
            for each in descriptors:
                os.close(each)

    def close(self):
        self.client.end.close()
        self.bus.end.close()


class Proxy:
    def __init__(self, path, bus, rules):
        self.bus, self.rules = bus, pathlib.Path(rules)
        self.processes = {}
        self.counts = collections.Counter()
        self.selector = selectors.DefaultSelector()
        self.connections = set()
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen(64)
        self.selector.register(self.listener, selectors.EVENT_READ, None)

    def rule_for(self, process, member):
        """The rule for the next message of this kind, and how many seconds later it comes."""
        self.counts[process, member] += 1
        row = f"{member}#{self.counts[process, member]}"
        print(row, flush=True)
        words = self.rules.read_text().split() if self.rules.exists() else []
        if len(words) < 2 or words[1] not in (row, "*"):
            return None, 0.0
        return words[0], float(words[2]) if len(words) > 2 else 0.0

    def accept(self):
        client, _ = self.listener.accept()
        connection = Connection(self, client)
        self.connections.add(connection)
        self.selector.register(client, selectors.EVENT_READ, (connection, connection.from_client))
        self.selector.register(connection.bus.end, selectors.EVENT_READ, (connection, connection.from_bus))

    def end(self, connection):
        if connection in self.connections:
            self.connections.remove(connection)
            self.selector.unregister(connection.client.end)
            self.selector.unregister(connection.bus.end)
            connection.close()

    def run(self):
        while True:
            is_waiting = any(connection.waiting for connection in self.connections)
            for key, _ in self.selector.select(0.005 if is_waiting else None):
                if key.data is None:
                    self.accept()
                    continue
                connection, read = key.data
                if connection in self.connections:
                    self.attempt(connection, read)
            for connection in list(self.connections):
                self.attempt(connection, lambda connection=connection: connection.deliver() or True)

    def attempt(self, connection, action):
        try:
            goes_on = action()
        except OSError:
            goes_on = False
        if not goes_on:
            self.end(connection)


if __name__ == "__main__":
    Proxy(*sys.argv[1:]).run()
