"""Local time made to measure: a test waits for no wall clock when it says itself when a minute begins."""

import time

MINUTE = 60


def of_offset(seconds):
    """A zone, as in TZ, that is so far ahead of UTC for good."""
    hours, rest = divmod(abs(seconds), 3600)
    return f"AAA{'+' if seconds < 0 else '-'}{hours}:{rest // 60:02}:{rest % 60:02}"


class Minute:
    """A minute on the local wall clock, to begin when a test says so."""

    def __init__(self, number):
        self.number = number

    @classmethod
    def at_hand(cls, *, at=None):
        """One that a zone near UTC can have soon; `at` asks for a minute of the hour."""
        number = int(time.time()) // MINUTE + 1
        if at is not None:
            number += (at - number) % MINUTE
        return cls(number)

    def next(self):
        return Minute(self.number + 1)

    def zone(self, begins):
        """The zone in which it begins at an instant, in whole seconds since the epoch."""
        return of_offset(self.number * MINUTE - begins)

    @property
    def fields(self):
        """The minute and the hour, as the first two fields of a schedule."""
        hour, minute = divmod(self.number, MINUTE)
        return f"{minute} {hour % 24}"


def soon(least=1.2):
    """The next whole second that is at least so far away."""
    return int(time.time() + least) + 1


class TooLate(Exception):
    """The machine took longer to get ready than a minute was put off for."""


def assert_ahead(begins):
    """Said when all is ready for a minute."""
    if time.time() > begins - 0.3:
        raise TooLate


def in_time(play, least=1.2):
    """Calls `play` with the seconds that a minute is to be put off for; again, with more of them, where the machine has so
    much else to do that they did not do. @return what it returns."""
    while True:
        try:
            return play(least)
        except TooLate:
            if least > MINUTE:
                raise
            least *= 3


def wait_until(instant):
    time.sleep(max(0.0, instant - time.time()))
