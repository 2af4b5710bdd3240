"""The Python module against the tool: the same vectors, names and errors.

Run by ctest with PYTHONPATH at python/, FONTVEC_LIBRARY, FONTVEC_CONFIG,
FONTVEC_EXE (the tool) and FIXTURES_DIR (the measurement fixtures) set."""
import os
import subprocess
import sys
import tempfile

import fontvec

EXE, FIXTURES = os.environ["FONTVEC_EXE"], os.environ["FIXTURES_DIR"]
SANS = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
failures = []


def tool(*args):
    run = subprocess.run([EXE, *args], capture_output=True, text=True)
    return [float(v) for v in run.stdout.strip().split(",")]


def check(ok, why):
    if not ok:
        failures.append(why)


names = subprocess.run([EXE, "measure", "--names", FIXTURES + "/LiberationSerif/Images"],
                       capture_output=True, text=True).stdout.split("\n")
check(list(fontvec.NAMES) == [line.split(" ")[1] for line in names if line],
      "NAMES are the tool's names in order")

empty = tempfile.mkdtemp()
not_font = os.path.join(empty, "not-a-font.ttf")
with open(not_font, "w") as f:
    f.write("plain text, no font")
rows = [  # call, argument, expected vector or error text, why
    (fontvec.vector, SANS, tool(SANS), "a font file: the tool's vector"),
    (fontvec.measure, FIXTURES + "/LiberationMono/Images",
     tool("measure", FIXTURES + "/LiberationMono/Images"), "a picture folder: measure's vector"),
    (fontvec.vector, "/no/such.ttf", "Error=No such file or directory", "a missing font"),
    (fontvec.vector, not_font, "Error=-1", "rendering failed"),
    (fontvec.measure, empty, "Error=8", "no pictures: a value is not a number"),
    (fontvec.measure, "/no/such/folder", "Error=1", "no folder"),
]
for call, arg, expected, why in rows:
    try:
        got = call(arg)
    except fontvec.Error as e:
        got = str(e)
    check(got == expected, "%s: %r gave %.200r" % (why, arg, got))
    check(not isinstance(got, list) or len(got) == 58, why + ": 58 values")

for f in failures:
    print("FAILED:", f)
sys.exit(1 if failures else 0)
