#!/usr/bin/env python3
"""Stands between a client and the server and loses every message once.

127.0.0.3:5683 passes the client's requests, which are GET, on to 127.0.0.2:5683, and the server's,
which are POST and carry its later answers, to 127.0.0.1:5683.
"""

import select
import socket
import sys

RELAY, SERVER, CLIENT = "127.0.0.3", ("127.0.0.2", 5683), ("127.0.0.1", 5683)
POST = 2


def bound(port):
    link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    link.bind((RELAY, port))
    return link


def main():
    front = bound(5683)
    to_server, to_client = bound(0), bound(0)
    asker = {to_server: None, to_client: None}
    seen = set()
    print("ready", flush=True)
    while True:
        for link in select.select([front, to_server, to_client], [], [])[0]:
            data, sender = link.recvfrom(65536)
            key = (link.fileno(), sender, data[:4])
            if key not in seen:
                seen.add(key)
                print("lost", data[:4].hex(), flush=True)
            elif link is not front:
                front.sendto(data, asker[link])
            else:
                link, target = (to_client, CLIENT) if data[1] == POST else (to_server, SERVER)
                asker[link] = sender
                link.sendto(data, target)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        sys.exit(0)
