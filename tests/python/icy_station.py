#!/usr/bin/env python3
"""A Shoutcast-style station on loopback, for the Python tests and examples.

It serves an MP3 file round and round with ICY metadata every 8192 bytes:
the first title for the first 40 blocks (about 20 s of 128 kbit/s audio),
then the second. As Icecast does, a title is sent when it changes and the
blocks between carry empty metadata. As a program it prints its port and serves until killed:

    icy_station.py FILE.mp3 [TITLE ...]
"""
import socket
import sys
import threading

METAINT = 8192
BLOCKS_PER_TITLE = 40
DEFAULT_TITLES = ("Belvane Test - Song One", "Belvane Test - Song Two")


def _metadata(title):
    text = f"StreamTitle='{title}';".encode()
    blocks = -(-len(text) // 16)
    return bytes([blocks]) + text.ljust(blocks * 16, b"\0")


class Station:
    def __init__(self, mp3_path, titles=DEFAULT_TITLES):
        with open(mp3_path, "rb") as f:
            self.audio = f.read()
        self.titles = list(titles)
        self.server = socket.create_server(("127.0.0.1", 0))
        self.port = self.server.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}/stream"
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        self.server.close()

    def _accept(self):
        while True:
            try:
                client, _ = self.server.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client):
        with client:
            try:
                request = b""
                while b"\r\n\r\n" not in request:
                    chunk = client.recv(4096)
                    if not chunk:
                        return
                    request += chunk
                wants_metadata = b"icy-metadata: 1" in request.lower()
                head = ["ICY 200 OK", "icy-name: Python Test Station", "content-type: audio/mpeg",
                        "icy-br: 128"]
                if wants_metadata:
                    head.append(f"icy-metaint: {METAINT}")
                client.sendall(("\r\n".join(head) + "\r\n\r\n").encode())
                offset, block, sent = 0, 0, None
                while True:
                    piece = b""
                    while len(piece) < METAINT:
                        take = self.audio[offset:offset + METAINT - len(piece)]
                        piece += take
                        offset = (offset + len(take)) % len(self.audio)
                    client.sendall(piece)
                    if wants_metadata:
                        title = self.titles[min(block // BLOCKS_PER_TITLE, len(self.titles) - 1)]
                        client.sendall(_metadata(title) if title != sent else b"\0")
                        sent = title
                    block += 1
            except OSError:
                return


if __name__ == "__main__":
    station = Station(sys.argv[1], sys.argv[2:] or DEFAULT_TITLES)
    print(station.port, flush=True)
    threading.Event().wait()
