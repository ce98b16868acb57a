"""Every source of the daemon goes through the compiler with musl's headers in the place of glibc's.

That is as far as it goes: Debian has no C++ library for musl, so nothing is linked. In musl/ stand the three headers of
the standard library that know glibc, as the library has them for other systems.
"""

import os
import subprocess
from concurrent.futures import ThreadPoolExecutor

from building import HERE, ROOT, WARNINGS, run

SOURCES = sorted(source for folder in ["src", "platform"] for source in (ROOT / folder).rglob("*.cpp"))


def search_path():
    """The compiler's own folders of headers, musl's for those of the system."""
    said = run("g++", "-E", "-v", "-x", "c++", os.devnull)
    folders = said.split("#include <...> search starts here:\n")[1].split("End of search list.")[0].split()
    own = [folder for folder in folders if "/c++" in folder or "/gcc/" in folder]
    library, compiler = [name for name in own if "/c++" in name], [name for name in own if "/c++" not in name]
    machine = run("g++", "-dumpmachine").strip().replace("-gnu", "-musl")
    return [HERE / "musl", *library, f"/usr/include/{machine}", *compiler]


def compile_with_musl(source):
    command = ["g++", "-std=c++17", "-fsyntax-only", *WARNINGS.split(), "-nostdinc", "-nostdinc++", "-D_FILE_OFFSET_BITS=64",
               *(f"-I{ROOT / folder}" for folder in ["src", "platform"])]
    for folder in search_path():
        command += ["-isystem", folder]
    return subprocess.run([*command, source], stderr=subprocess.PIPE, text=True, timeout=120)


def test_the_headers_are_musls(tmp_path):
    source = tmp_path / "asking.cpp"
    source.write_text("#include <string>\n#ifdef __GLIBC__\n#error glibc\n#endif\n")

    assert compile_with_musl(source).stderr == ""


def test_the_daemon_compiles_with_musls_headers():
    assert len(SOURCES) > 50
    with ThreadPoolExecutor(os.cpu_count()) as workers:
        complaints = [done.stderr for done in workers.map(compile_with_musl, SOURCES) if done.returncode != 0]

    assert complaints == []
