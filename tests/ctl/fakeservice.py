"""A service that says what a test tells it to: for what a real one would take days to come to.

    with fakeservice.FakeService({"status": {...}, "list": [...], "show": {identity: {...}}, "history": {identity: [...]}}) as root:
        subprocess.run([TOOL, "--root", root, "list"])
"""

import json
import os
import pathlib
import socket
import tempfile
import threading

BUFFER = 1 << 18


def page(items):
    return {"items": items, "next": None}


class FakeService:
    def __init__(self, told, too_often=()):
        """too_often: the numbers of the requests that come too soon after others"""
        self.told = told
        self.too_often = too_often
        self.requests = 0

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory()
        path = pathlib.Path(self.folder.name) / "var/run/vukocrond.sock"
        path.parent.mkdir(parents=True)
        self.listening = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listening.bind(str(path))
        self.listening.listen()
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()
        return self.folder.name

    def __exit__(self, *_):
        self.listening.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listening.close()
        self.folder.cleanup()

    def serve(self):
        while True:
            try:
                connection = self.listening.accept()[0]
            except OSError:
                return
            with connection:
                while (request := connection.recv(BUFFER)) and (reply := self.reply(json.loads(request))):
                    connection.send(json.dumps(reply).encode())

    def reply(self, request):
        verb, job = request["verb"], request.get("job")
        self.requests += 1
        if self.requests in self.too_often:
            return {"version": 1, "id": None, "ok": False, "error": {"code": "rate", "message": "too many requests"}}
        if verb == "run":
            return None  # it goes away
        if job is None:
            told = self.told.get(verb)
            if verb == "list":  # what is too long for it is told by "show" alone
                told = [{**one, "schedule": None} if len(one["schedule"] or "") > 100 else one for one in told]
            return {"version": 1, "ok": True, "result": page(told) if isinstance(told, list) else told}
        found = next((one for one in self.told["list"] if job in (one["id"], one["name"])), None)
        if found is None:
            return {"version": 1, "ok": False, "error": {"code": "not-found", "message": f'there is no job "{job}"'}}
        result = page(self.told["history"].get(found["id"], [])) if verb == "history" else {**found, **self.told["show"]}
        return {"version": 1, "ok": True, "result": result}


STATUS = {"service": "vukocrond", "version": "0.1.0", "draining": False, "hibernating": False, "jobs": {"waiting": 2},
          "now": 1795237805, "offset": 0, "tz": "UTC", "zone": "UTC", "policy": "catchup", "role": "active", "refused": 0,
          "saved": 1795237742, "started": 1795230000, "pid": 4711, "workedUpTo": 29920690, "starts": {"started": 2}}
TEMPLATE = {"maxDelay": 120, "values": {"Minute": 56, "day": 28, "hour": 21, "month": 2, "week": 2}}
SHOW = {"assureAction": "run", "assureHours": 48, "definition": {"name": "x", "user": "root", "period": "c", "crontab": "30 23 * * 1", "cmd": "/bin/true"}, "overdue": False,
        "overlap": "skip", "runOnPassive": False, "timeout": 0}


def job(identity, **changes):
    folder, *package, name = identity.split("/")
    return {"id": identity, "name": name, "folder": folder, "package": package[0] if package else None,
            "account": "root", "enabled": True, "state": "waiting", "fields": "30 23 * * 1", "schedule": "30 23 -1 -1 1",
            "words": "at 23:30 on Monday", "file": f"/usr/{identity}.conf", "randomMinute": False, "startup": 1795000000,
            "lastExecution": None, "last": None, **changes}


def ended(kind="exited", code=0, duration=1500000, started=1795237741):
    return {"kind": kind, "code": code, "cpuUsec": 795000, "durationUsec": duration, "maxRssKib": 5044,
            "startedUsec": started * 1000000, "endedUsec": started * 1000000 + duration}


def world(jobs, history=None, status=None, show=None, refused=()):
    return {"status": {**STATUS, **(status or {})}, "template": TEMPLATE, "list": jobs, "refused": list(refused),
            "show": {**SHOW, **(show or {})}, "history": history or {}}
