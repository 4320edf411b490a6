"""What a line of a classic crontab means, by its manual page alone, and what five fields of plain values mean here."""

import datetime

BOUNDS = [(0, 59), (0, 23), (1, 31), (1, 12), (0, 7)]
NAMES = [None, None, None, "jan feb mar apr may jun jul aug sep oct nov dec".split(), "sun mon tue wed thu fri sat".split()]
DAYS = [datetime.date(2023, 1, 1) + datetime.timedelta(days=n) for n in range(6 * 365)]


def classic_values(text, field):
    """The values of a field of a classic crontab."""
    low, high = BOUNDS[field]
    values = set()
    for item in text.split(","):
        span, _, step = item.partition("/")
        ends = [str(low), str(6 if field == 4 else high)] if span == "*" else span.split("-")
        numbers = [NAMES[field].index(end.lower()) + (field == 3) if NAMES[field] and end.isalpha() else int(end) for end in ends]
        values |= {value % 7 if field == 4 else value for value in range(numbers[0], numbers[-1] + 1, int(step or 1))}
    return values


def here_values(text, field):
    low, high = BOUNDS[field]
    return set(range(low, high + 1)) if text == "*" else {int(item) for item in text.split(",")}


def here_matches(values, day):
    """Whether five sets of values hold a day."""
    return day.month in values[3] and day.day in values[2] and day.isoweekday() % 7 in values[4]


def classic_day_matcher(texts):
    """Tells of a day whether a line with these five fields runs on it."""
    values = [classic_values(text, field) for field, text in enumerate(texts)]
    join = all if texts[2].startswith("*") or texts[4].startswith("*") else any
    return lambda day: day.month in values[3] and join((day.day in values[2], day.isoweekday() % 7 in values[4]))


def random_item(chance, field):
    low, high = BOUNDS[field]
    first, last = sorted(chance.sample(range(low, high + 1), 2))
    name = (lambda value: NAMES[field][value % 7 if field == 4 else value - 1]) if NAMES[field] else str
    return chance.choice(["*", f"*/{chance.randint(1, 12)}", str(first), f"{first}-{last}",
                          f"{first}-{last}/{chance.randint(1, 5)}", name(first)])


def random_fields(chance):
    return [",".join(random_item(chance, field) for _ in range(chance.choice([1, 1, 2]))) for field in range(5)]
