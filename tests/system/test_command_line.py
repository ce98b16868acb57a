"""What horad says to its command line."""

import pytest

USAGE = """Usage: horad [OPTION] -t TABLE [-t TABLE]

  -d, --daemon\t\tStart as daemon
  -v, --verbose\t\tPrint debug messages
  -t, --table\t\ta table to be watched
  -r, --repeatdelay\tDelay between two attemps to execute time window controlled services
  -h, --help\t\tPrints this help
"""


@pytest.mark.parametrize("arguments", [["-h"], ["--help"], ["-d", "-t", "A", "-h", "-x"], ["-h", "-x"]])
def test_help_prints_the_usage(house, arguments):
    assert house.run("horad", *arguments) == (0, USAGE, "")


@pytest.mark.parametrize("arguments", [["-x"], ["-x", "-h"], ["-t"], ["--tables=A"], ["-r"], ["-t", "A", "-q"]])
def test_a_wrong_option_is_named_and_ends_with_1(house, arguments):
    status, out, err = house.run("horad", *arguments)
    assert (status, out) == (1, "")
    assert err.endswith("Wrong option\n")


@pytest.mark.parametrize("arguments", [[], ["-v"], ["-d"], ["-d", "-v", "-r", "5"]])
def test_without_a_table_it_ends_with_1_and_says_why(house, arguments):
    status, out, err = house.run("horad", *arguments)
    assert (status, out) == (1, "")
    assert "You have to specify at least one table (with -t TABLE)" in err
    assert house.processes() == []
