#!/usr/bin/env python3
"""Regenerates the declarations file from the Qt source and compares it
byte for byte with the committed one.

The Qt source tree is taken from $KW_QT_SOURCE (default /work/qt487).
Exit status: 0 same, 1 different, 77 skipped (no castxml, no mingw-w64 g++
or no Qt source here).
"""

import filecmp
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))


def main():
    committed = sys.argv[1]
    qt = os.environ.get("KW_QT_SOURCE", "/work/qt487")
    missing = [tool for tool in ("castxml", "x86_64-w64-mingw32-g++") if shutil.which(tool) is None]
    if missing or not os.path.isfile(os.path.join(qt, "src", "corelib", "global", "qglobal.h")):
        print("SKIPPED: regenerating the declarations needs castxml, mingw-w64 and the Qt 4.8.7 "
              "source (set KW_QT_SOURCE); missing: %s"
              % (", ".join(missing) or "Qt source at %s" % qt))
        return 77
    out = os.path.join(tempfile.mkdtemp(prefix="kw_decl_"), "declarations.jsonl")
    rc = subprocess.call([sys.executable, os.path.join(HERE, "frontend.py"),
                          "--qt-source", qt, "--out", out])
    if rc != 0:
        print("the front-end failed (%d)" % rc)
        return 1
    if not filecmp.cmp(out, committed, shallow=False):
        print("regenerated declarations differ from %s (new file: %s)" % (committed, out))
        return 1
    print("regenerated declarations are identical to %s" % committed)
    return 0


if __name__ == "__main__":
    sys.exit(main())
