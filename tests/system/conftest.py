import pytest

from house import House


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
