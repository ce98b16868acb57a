"""A client as a process of its own: it writes in a transaction and says so, and at each line it is given it tries to
commit and prints the result code."""

import sys

from wire import Client, result_code

client = Client(sys.argv[1])
assert result_code(client.begin()) == 0
assert result_code(client.write_single("wexd", "Enable", 7)) == 0
print("holding", flush=True)
for _ in sys.stdin:
    print(result_code(client.commit()), flush=True)
