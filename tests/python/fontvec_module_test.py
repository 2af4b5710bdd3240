"""The Python module against the tool: the same names, vectors and errors (env from ctest)."""
import os, shutil, subprocess, sys, tempfile
import fontvec

EXE, MONO = os.environ["FONTVEC_EXE"], os.environ["FIXTURES_DIR"] + "/LiberationMono/Images"
SANS = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"


def tool(*args): return subprocess.run([EXE, *args], capture_output=True, text=True).stdout


empty = tempfile.mkdtemp()
not_font = os.path.join(empty, "not-a-font.ttf")
open(not_font, "w").write("plain text, no font")
names = [line.split(" ")[1] for line in tool("measure", "--names", MONO).splitlines()]
rows = [  # call, argument, expected vector or error text, why
    (fontvec.vector, SANS, [float(v) for v in tool(SANS).split(",")], "a font: the tool's vector"),
    (fontvec.measure, MONO, [float(v) for v in tool("measure", MONO).split(",")], "pictures: measure's"),
    (fontvec.vector, "/no/such.ttf", "Error=No such file or directory", "a missing font"),
    (fontvec.vector, not_font, "Error=-1", "rendering failed"),
    (fontvec.measure, empty, "Error=8", "no pictures: a value is not a number"),
    (fontvec.measure, "/no/such/folder", "Error=1", "no folder"),
    (lambda _: list(fontvec.NAMES), None, names, "NAMES: the tool's names in order"),
]
failures = 0
for call, arg, expected, why in rows:
    try:
        got = call(arg)
    except fontvec.Error as e:
        got = str(e)
    if got != expected or (isinstance(got, list) and len(got) != 58):
        print("FAILED: %s: %r gave %.200r" % (why, arg, got))
        failures += 1
shutil.rmtree(empty)
sys.exit(1 if failures else 0)
