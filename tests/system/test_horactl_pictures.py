"""The week's page and picture as a browser shows them: on a wide screen and on a phone, in light and dark."""

import json
import re
import shutil
import struct
import subprocess
import tempfile
import xml.dom.minidom
import zlib
from html import escape
from html.parser import HTMLParser
from pathlib import Path

import pytest

from house import House

CHROMIUM = shutil.which("chromium")
HEADLESS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"]
LONG = 120  # seconds: how long a browser may take on a loaded machine
WIDE, PHONE = 1200, 360  # pixels
DARK, LIGHT = 0, 1  # preferredColorScheme
SATURDAY = "2026-10-24 12:00"  # the clock goes back in the night
NAMES = ["Guests", "<script>console.error('ran')</script>", '"><img src=x onerror=console.error(1)>', "a & b", "\u202eturned",
         "W" * 200, "\u65e5\u672c\u8a9e"]



def why_no_browser():
    """Why no page can be shown here; empty where one can be. A browser needs more of a machine than other programs."""
    if CHROMIUM is None:
        return "there is no chromium"
    with tempfile.TemporaryDirectory() as profile:
        shown = subprocess.run([CHROMIUM, *HEADLESS, f"--user-data-dir={profile}", "--dump-dom", "data:text/html,<p>here"],
                               capture_output=True, text=True, timeout=LONG, check=False)
    return "" if "here" in shown.stdout else f"chromium shows no page here: {shown.stderr[-300:]}"


@pytest.fixture(scope="module", autouse=True)
def browser_that_works():
    why = why_no_browser()
    if why:
        pytest.skip(why)



def household():
    days = ["Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"]
    plans = [{"Id": i + 1, "TimePlanName": name, "Activate": 1 if i % 3 else 0, f"Start{days[i % 7]}": "07:00:00",
              f"Stop{days[i % 7]}": "22:00:00", "StartSat": "20:00:00", "StopSat": "04:00:00"} for i, name in enumerate(NAMES)]
    frame = {"Id": 1, "WindowMode": 3, "Servicetable": "FileTransfer", "ServicetableId": 1, "TimeFrameStart": 1792880000,
             "TimeFrameEnd": 1793000000, "UserMessage": "Update", "MaxRetries": 3, "RunCounter": 0}
    window = {"Id": 1, "Enable": 1, "WeekDay": 0, "StartTimeHour": 2, "StartTimeMinute": 0, "EndTimeHour": 4, "EndTimeMinute": 59}
    return {"WlanGlobals": {"WlanEnable": 0, "AlwaysEnable": 0}, "WlanTimePlans": plans,
            "TimePlans": [{"Id": 1, "TimePlanName": "School", "Activate": 1, "StartSun": "21:00:00", "StopSun": "06:00:00"}],
            "FileTransfer": [{"Id": 1, "Status": 0, "Result": 0}], "FirmwareUpdateTimePlan": [window], "TimeFrame": [frame],
            "AutoReboot": {"Enable": 1, "WeekDay": 1, "Time": "03:30:00", "LastReboot": "", "MinimumRuntime": 24},
            "wexd": {"Enable": 0}, "Reboot": {"Trigger": 0}}


def draw(folder, tables):
    """The week's page and picture, by a horactl in a house of its own: a horad beside it would count."""
    home = House()
    try:
        Path(home.path("/tmp/dump.json")).write_text(json.dumps(tables))
        status, _, errors = home.run("horactl", "-f", "/tmp/dump.json", "--at", SATURDAY, "week", "--svg", "/tmp/week.svg",
                                     "--html", "/tmp/week.html", env={"TZ": "Europe/Berlin"}, deadline=LONG)
        assert status == 0, errors
        for name in ("week.svg", "week.html"):
            (folder / name).write_bytes(Path(home.path(f"/tmp/{name}")).read_bytes())
    finally:
        home.close()
    return folder


@pytest.fixture(scope="module")
def pictures(tmp_path_factory):
    return draw(tmp_path_factory.mktemp("week"), household())


class Browser:
    """A chromium without a screen, which shows one file. What a page says on its console is kept."""

    def __init__(self, profile):
        self._profile = profile

    def run(self, file, *options, width=WIDE, scheme=LIGHT, height=260):
        result = subprocess.run(
            [CHROMIUM, *HEADLESS, "--hide-scrollbars", "--enable-logging=stderr", "--v=0", f"--user-data-dir={self._profile}", f"--blink-settings=preferredColorScheme={scheme}",
             f"--window-size={width},{height}", *options, f"file://{file}"],
            capture_output=True, text=True, timeout=LONG, check=True)
        assert "CONSOLE" not in result.stderr, result.stderr
        return result.stdout

    def screenshot(self, file, shot, **how):
        self.run(file, f"--screenshot={shot}", **how)
        return Pixels(shot.read_bytes())


@pytest.fixture
def browser(tmp_path):
    return Browser(tmp_path / "profile")


class Pixels:
    """A screenshot, pixel by pixel: 8 bits a colour, not interlaced."""

    def __init__(self, png):
        self.width, self.height, bits, kind, *_ = struct.unpack(">IIBBBBB", png[16:29])
        assert bits == 8 and kind in (2, 6)
        self._depth = 3 if kind == 2 else 4
        self._rows = self._unfiltered(zlib.decompress(b"".join(self._data(png))))

    @staticmethod
    def _data(png):
        at = 8
        while at < len(png):
            size, kind = struct.unpack(">I4s", png[at:at + 8])
            if kind == b"IDAT":
                yield png[at + 8:at + 8 + size]
            at += size + 12

    def _unfiltered(self, data):
        size = self.width * self._depth
        rows, above = [], bytes(size)
        for y in range(self.height):
            kind, line = data[y * (size + 1)], bytearray(data[y * (size + 1) + 1:(y + 1) * (size + 1)])
            for x in range(size) if kind else ():
                left = line[x - self._depth] if x >= self._depth else 0
                corner = above[x - self._depth] if x >= self._depth else 0
                line[x] = (line[x] + (left, above[x], (left + above[x]) // 2, paeth(left, above[x], corner))[kind - 1]) & 255
            rows.append(bytes(line))
            above = rows[-1]
        return rows

    def at(self, x, y):
        return tuple(self._rows[y][x * self._depth:x * self._depth + 3])

    def count(self, colour):
        wanted = bytes(colour)
        return sum(row[x:x + 3] == wanted for row in self._rows for x in range(0, len(row), self._depth))


def paeth(left, above, corner):
    guess = left + above - corner
    return min((left, above, corner), key=lambda value: abs(guess - value))


class Page(HTMLParser):
    """The texts of a page, and its table's rows."""

    def __init__(self, html):
        super().__init__()
        self.tags, self.rows, self.texts, self._row = set(), [], [], None
        self.feed(html)

    def handle_starttag(self, tag, attrs):
        self.tags.add(tag)
        if tag == "tr":
            self._row = []
        if tag in ("td", "th") and self._row is not None:
            self._row.append("")

    def handle_endtag(self, tag):
        if tag == "tr":
            self.rows.append(self._row)
            self._row = None

    def handle_data(self, data):
        self.texts.append(data)
        if self._row:
            self._row[-1] += data


def test_the_browser_finds_every_text_and_nothing_runs(pictures, browser):
    page = Page(browser.run(pictures / "week.html", "--dump-dom"))
    assert not page.tags & {"script", "img", "link", "iframe", "object"}
    text = " ".join(page.texts)
    for expected in ["Guests", "<script>console.error('ran')</script>", "a & b", "\\u202eturned", "\u65e5\u672c\u8a9e", "Europe/Berlin",
                     "clock 1 h back", "now, 12:00", "reboot, about 03:30", "frame 1, FileTransfer.1"]:
        assert expected in text, expected
    assert "\u202e" not in text


def test_who_cannot_see_it_reads_the_same_in_a_table(pictures, browser):
    rows = Page(browser.run(pictures / "week.html", "--dump-dom")).rows
    assert [row for row in rows if row == ["Sun 25 Oct 2026"]]
    assert ["21:00 CET\u201324:00", "slot open", "TimePlans.1 School: active in its slots"] in rows
    assert [row for row in rows if row[0] == "about 03:30" and row[1] == "reboot"]
    assert [row for row in rows if row[1:] == ["now", ""]] == [["12:00", "now", ""]]


@pytest.mark.parametrize("width", [WIDE, 600, PHONE, 320])
def test_nothing_is_wider_than_the_screen(pictures, browser, tmp_path, width):
    """In a frame of that width, since a window without a screen is 500 pixels wide at least."""
    page = escape((pictures / "week.html").read_text())
    measured = tmp_path / "measured.html"
    measured.write_text(f"""<!DOCTYPE html><title>none</title><iframe width="{width}" height="500" srcdoc="{page}"></iframe><script>
        onload = () => {{ const page = frames[0].document.documentElement
                          document.title = page.scrollWidth + " of " + frames[0].innerWidth }}</script>""")
    dom = browser.run(measured, "--dump-dom", width=2000)
    found, screen = map(int, re.search(r"<title>(\d+) of (\d+)</title>", dom).groups())
    assert screen == width and found <= width


ON = {LIGHT: (0x0f, 0x76, 0x6e), DARK: (0x2d, 0xd4, 0xbf)}
PAGE = {LIGHT: (0xff, 0xff, 0xff), DARK: (0x11, 0x18, 0x27)}


@pytest.mark.parametrize("scheme", [LIGHT, DARK])
@pytest.mark.parametrize("width", [WIDE, PHONE])
def test_the_page_is_drawn_in_the_colours_that_the_reader_prefers(pictures, browser, tmp_path, width, scheme):
    first_day = {WIDE: 260, PHONE: 480}[width]  # it is within so many pixels
    pixels = browser.screenshot(pictures / "week.html", tmp_path / "shot.png", width=width, scheme=scheme, height=first_day)
    assert pixels.width == width and pixels.at(2, 2) == PAGE[scheme]
    assert pixels.count(ON[scheme]) > 1000
    assert pixels.count(ON[1 - scheme]) == 0


def test_the_picture_is_a_file_of_its_own(pictures, browser, tmp_path):
    svg = xml.dom.minidom.parse(str(pictures / "week.svg"))
    assert not svg.getElementsByTagName("script") and svg.documentElement.tagName == "svg"
    pixels = browser.screenshot(pictures / "week.svg", tmp_path / "shot.png", scheme=DARK)
    assert pixels.count(ON[DARK]) > 1000


def test_an_empty_household_has_a_page_too(tmp_path, browser):
    text = " ".join(Page(browser.run(draw(tmp_path, {}) / "week.html", "--dump-dom")).texts)
    assert "there is no WLAN plan" in text
