"""Font feature vectors from Python, through the installed shared library.

    import fontvec
    v = fontvec.vector("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf")
    dict(zip(fontvec.NAMES, v))["isMonoSpaced"]

vector() renders a font file and measures its pictures; measure() measures a
folder of glyph pictures. Both return the 58 values in the order of NAMES
and raise fontvec.Error carrying the library's error text. Standard library
only: the calls go through ctypes to libfeature_vector.

The library is found by $FONTVEC_LIBRARY, else beside this file's
installed place (PREFIX/lib/...), else by the dynamic loader; the rendering
script's folder by $FONTVEC_CONFIG, else PREFIX/share/fontvec/config.
Rendering runs in this process: a font on which the renderer ends its
process ends this one too (`fontvec FONT` works each font in a child).
"""

import ctypes
import ctypes.util
import os
import shutil
import tempfile
import threading

__all__ = ["NAMES", "Error", "vector", "measure"]

# The values of a vector, in order.
NAMES = (
    "AvgGreyVal", "COGX", "COGY", "aspectRatio", "avgX", "avgY", "curviness",
    "dir0", "dir45", "dir90", "dir135", "char_int_x", "char_int_y",
    "HeighthistNumber", "WidthhistNumber", "str_width", "sqrstr_width",
    "isSerifFont", "CapHeight", "corpusRatio", "isSymbolFont", "isMonoSpaced",
    "skew", "isStencilFont", "XHeight", "strokwidth", "SymbolContrast",
    "AvgGreyString", "Contrast", "getAvggreyStdDev", "isAllCaps", "fillFactor",
    "isNotBlackLetter", "isDigitalFont", "isHollow", "isConnected",
    "stressAngle", "isTwostoryag", "x2AscenderHeight", "isDarkPix",
    "isFreeHand", "edginess", "SelCurviness", "counterOpenness",
    "e_slantAngle", "squareness_O", "roundness_of_dots", "advancedWidth",
    "CloseCounter", "subSerifType", "SubSerifGreyNess", "WedgeSerifAngleTop",
    "WedgeSerifStdDevTop", "WedgeSerifStdDevBottom", "WedgeSerifAngleBottom",
    "Cap2AscHeight", "AscenderStddevSerif", "FlareStemNess",
)

_TEXT_SIZE = 1888  # FEATURE_VECTOR_TEXT_SIZE
_SONAME = "libfeature_vector.so.1"


class Error(Exception):
    """A font or folder the library could not turn into a vector; the
    message is the library's error text, such as "Error=-1"."""


_lock = threading.Lock()  # one link of the library at a time
_lib = None


def _here():
    return os.path.dirname(os.path.abspath(__file__))


def _library():
    global _lib
    if _lib is not None:
        return _lib
    candidates = [os.environ.get("FONTVEC_LIBRARY", "")]
    # Installed: PREFIX/lib[/<arch>]/python3/dist-packages/fontvec.py.
    libdir = os.path.dirname(os.path.dirname(_here()))
    candidates.append(os.path.join(libdir, _SONAME))
    candidates.append(_SONAME)
    candidates.append(ctypes.util.find_library("feature_vector") or "")
    problems = []
    for name in candidates:
        if not name:
            continue
        try:
            lib = ctypes.CDLL(name)
        except OSError as e:
            problems.append(str(e))
            continue
        lib.link_library.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
        lib.link_library.restype = ctypes.c_int
        lib.unlink_library.argtypes = []
        lib.unlink_library.restype = ctypes.c_int
        lib.create_feature_vector.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
        lib.create_feature_vector.restype = ctypes.c_int
        lib.getFeatureVector.argtypes = [ctypes.c_char_p, ctypes.c_int,
                                         ctypes.c_double]
        lib.getFeatureVector.restype = ctypes.c_void_p
        _lib = lib
        return lib
    raise Error("Error=libfeature_vector not found: " + "; ".join(problems))


def _config():
    folder = os.environ.get("FONTVEC_CONFIG")
    if folder:
        return folder
    # PREFIX/lib[/<arch>]/python3/dist-packages -> PREFIX/share/fontvec/config
    prefix = _here()
    for _ in range(4):
        prefix = os.path.dirname(prefix)
        config = os.path.join(prefix, "share", "fontvec", "config")
        if os.path.isfile(os.path.join(config, "Script.scr")):
            return config
    raise Error("Error=no configuration folder (Script.scr); set FONTVEC_CONFIG")


def _values(text):
    """The floats of a vector line, or Error with the line's error text."""
    if "Error" in text:
        raise Error(text.strip())
    fields = text.strip().split(",")
    if len(fields) != len(NAMES):
        raise Error("Error=%d values in the line" % len(fields))
    return [float(f) for f in fields]


def vector(font_path):
    """The feature vector of a font file, as a list of 58 floats."""
    lib, config = _library(), _config()
    folder = tempfile.mkdtemp(prefix="fontvec-")
    try:
        try:
            shutil.copyfile(font_path, os.path.join(folder, "font.ttf"))
        except OSError as e:
            raise Error("Error=%s" % (e.strerror or e)) from None
        os.mkdir(os.path.join(folder, "Images"))
        result = ctypes.create_string_buffer(_TEXT_SIZE)
        with _lock:
            name = "/fontvec-py-%d" % os.getpid()
            linked = lib.link_library(name.encode(), config.encode())
            if linked != 0:
                raise Error("Error=link_library returned %d" % linked)
            try:
                lib.create_feature_vector(os.fsencode(folder), result)
            finally:
                lib.unlink_library()
        return _values(result.value.decode("ascii", "replace"))
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def measure(images_dir):
    """The feature vector of a folder of glyph pictures, 58 floats."""
    if not os.path.isdir(images_dir):
        raise Error("Error=1")  # the library's "no folder"
    lib = _library()
    line = lib.getFeatureVector(os.fsencode(images_dir), 0, 0.0)
    if not line:
        raise Error("Error=16")
    try:
        text = ctypes.string_at(line).decode("ascii", "replace")
    finally:
        ctypes.CDLL(None).free(ctypes.c_void_p(line))
    return _values(text)
