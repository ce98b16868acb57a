"""Weekly plans made from a moment."""

import time

DAYS = ["Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"]


def slot(begin, end, local=time.localtime):
    """The columns of a plan whose only slot runs from one moment to another, less than a day later."""
    first, last = local(begin), local(end)
    day = DAYS[first.tm_wday]
    return {f"Start{day}": time.strftime("%H:%M:%S", first), f"Stop{day}": time.strftime("%H:%M:%S", last)}


def slot_around_now():
    now = time.time()
    return slot(now - 3600, now + 3600)


def slot_later():
    now = time.time()
    return slot(now + 3 * 3600, now + 4 * 3600)
