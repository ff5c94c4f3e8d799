"""A client that knows the message format, and not the library: ipc_client.py PORT

Pings a dispatcher on the loopback in every way that a message can be cut to pieces, and compares what
comes back byte for byte. Says what is wrong and exits with 1 when something is.
"""
import socket
import struct
import sys
import time

PING = 1
KEPT = 1016    # payload bytes that a dispatcher keeps


def message(kind, payload):
    return struct.pack("=II", kind, len(payload)) + payload


def answer(port, pieces):
    """All that comes back for a request that is sent in these pieces."""
    with socket.create_connection(("127.0.0.1", port), timeout=60) as connection:
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for piece in pieces[:-1]:
            connection.sendall(piece)
            time.sleep(0.001)
        connection.sendall(pieces[-1])
        received = b""
        while block := connection.recv(65536):
            received += block
        return received


def expect(what, received, expected):
    if received != expected:
        sys.exit(f"{what}: {received[:60]!r} ({len(received)} bytes), not {expected[:60]!r} ({len(expected)})")


def main(port):
    whole = message(PING, bytes(range(13)))
    for cut in range(1, len(whole)):
        expect(f"cut at {cut}", answer(port, [whole[:cut], whole[cut:]]), whole)
    expect("byte by byte", answer(port, [whole[i : i + 1] for i in range(len(whole))]), whole)

    for size in (0, 1, KEPT - 1, KEPT, KEPT + 1, 5000, 1_000_000):
        payload = bytes(i * 7 & 255 for i in range(size))
        request = message(PING, payload)
        expected = struct.pack("=II", PING, size) + payload[:KEPT]
        expect(f"{size} bytes", answer(port, [request]), expected)
        for cut in (3, 8, 9, 1023, 1024, 1025, size + 7):
            if 0 < cut < len(request):
                expect(f"{size} bytes cut at {cut}", answer(port, [request[:cut], request[cut:]]), expected)

    # What follows a request is not read, but must not cost the answer either.
    expect("more than asked", answer(port, [whole + b"x" * 1000]), whole)


main(int(sys.argv[1]))
