"""What horactl says, for programs."""

import json


def ask(house, *words, input=None, env=None, deadline=60):
    """The objects that horactl prints."""
    status, out, err = house.run("horactl", "--json", *words, input=input, env=env, deadline=deadline)
    assert status == 0, f"horactl {words}: {status}\n{err}"
    return [json.loads(line) for line in out.splitlines()]


def ask_one(house, *words, **surroundings):
    """The one object that horactl prints."""
    (answer,) = ask(house, *words, **surroundings)
    return answer
