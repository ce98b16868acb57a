import pytest

from house import House


def pytest_addoption(parser):
    parser.addoption("--fire", type=int, default=1, metavar="N", help="the tests under fire run N times as long")
    parser.addoption("--sweep", action="store_true", help="all steps of the sweeps, and not a sample of them")


@pytest.fixture
def fire(request):
    """How many times longer than usual the tests under fire run."""
    return request.config.getoption("--fire")


@pytest.fixture
def house():
    home = House()
    yield home
    home.close()


@pytest.fixture
def store(house):
    """A house with a configuration store that serves from memory."""
    house.server = house.cfgserver()
    return house


@pytest.fixture
def log(house):
    """The system log of the house."""
    syslog = house.syslog()
    yield syslog
    syslog.close()
