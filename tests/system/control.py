"""Asks a running service through its control socket."""

import json
import socket

_PATIENCE = 30.0
_LARGEST_REPLY = 1 << 18
_PAGE = 100


class Refused(Exception):
    """The service answered that it will not or cannot."""


class Control:
    def __init__(self, path):
        self.path = path

    def ask(self, verb, **members):
        """The result of one request."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
            connection.settimeout(_PATIENCE)
            connection.connect(self.path)
            connection.send(json.dumps({"version": 1, "verb": verb, **members}).encode())
            reply = json.loads(connection.recv(_LARGEST_REPLY))
        if not reply["ok"]:
            raise Refused(f"{verb} {members}: {reply['error']}")
        return reply["result"]

    def answers(self):
        try:
            return self.ask("ping")["service"] == "vukocrond"
        except OSError:
            return False

    def all(self, verb, **members):
        """Every page of a list."""
        items, start = [], 0
        while start is not None:
            page = self.ask(verb, **{"from": start, "limit": _PAGE}, **members)
            items += page["items"]
            start = page["next"]
        return items

    def jobs(self):
        return {job["name"]: job for job in self.all("list")}

    def history(self, job):
        return self.all("history", job=job)

    def schedules(self):
        return {name: job["schedule"] for name, job in self.jobs().items()}
