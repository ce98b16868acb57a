"""What a command says that is refused: one line."""


def refused(house, *command, input=None):
    status, out, err = house.run(*command, input=input)
    assert (status, out) == (1, "") and len(err.splitlines()) == 1, (status, out, err)
    return err


def refused_cfgctl(house, *arguments, input=None):
    err = refused(house, "cfgctl", *arguments, input=input)
    assert err.startswith("cfgctl: "), err
    return err
