"""A server that knows the message format, and not the library.

Prints its port on the loopback and serves one connection after the other, with one request on each. The
request's type says how to answer, its payload is a number n:

    1    the request itself                    103  nothing, until the client closes
    100  a message in two pieces, cut at n     104  a message byte by byte, n milliseconds apart
    101  the first n bytes of a message        105  the request itself, and the end of the service
    102  a message of n bytes, and another
"""
import socket
import struct
import time

ANSWER = struct.pack("=II", 7, 13) + b"0123456789abc"


def exactly(connection, count):
    received = b""
    while len(received) < count:
        block = connection.recv(count - len(received))
        if not block:
            return None
        received += block
    return received


def serve(connection):
    """Answers one request. False ends the service."""
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    header = exactly(connection, 8)
    if header is None:
        return True
    kind, length = struct.unpack("=II", header)
    payload = exactly(connection, length)
    if payload is None:
        return True
    n = struct.unpack("=I", payload[:4])[0] if length >= 4 else 0
    if kind in (1, 105):
        connection.sendall(header + payload)
    elif kind == 100:
        connection.sendall(ANSWER[:n])
        time.sleep(0.002)
        connection.sendall(ANSWER[n:])
    elif kind == 101:
        connection.sendall(ANSWER[:n])
    elif kind == 102:
        connection.sendall(struct.pack("=II", 8, n) + bytes(i & 255 for i in range(n)) + ANSWER)
    elif kind == 103:
        connection.recv(1)
    elif kind == 104:
        for i in range(len(ANSWER)):
            connection.sendall(ANSWER[i : i + 1])
            time.sleep(n / 1000)
    return kind != 105


def main():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        print(listener.getsockname()[1], flush=True)
        serving = True
        while serving:
            connection = listener.accept()[0]
            with connection:
                try:
                    serving = serve(connection)
                except OSError:    # the client had enough
                    pass


main()
