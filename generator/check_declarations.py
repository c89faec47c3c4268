#!/usr/bin/env python3
"""Regenerates a declarations file and compares it byte for byte with the
committed one.

Usage: check_declarations.py COMMITTED [FRONT-END ARGUMENTS...]

Without front-end arguments the file is the Qt one, regenerated from the
Qt source tree in $KW_QT_SOURCE (default /work/qt487). With them (another
library's --include-dir, --config-dir, --catalogue ...) they are passed to
the front-end as they are.
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
    source_args = sys.argv[2:]
    qt = os.environ.get("KW_QT_SOURCE", "/work/qt487")
    missing = [tool for tool in ("castxml", "x86_64-w64-mingw32-g++") if shutil.which(tool) is None]
    if missing:
        print("SKIPPED: regenerating the declarations needs %s" % ", ".join(missing))
        return 77
    if not source_args:
        if not os.path.isfile(os.path.join(qt, "src", "corelib", "global", "qglobal.h")):
            print("SKIPPED: regenerating the Qt declarations needs the Qt 4.8.7 source "
                  "(set KW_QT_SOURCE); none at %s" % qt)
            return 77
        source_args = ["--qt-source", qt]
    folder = tempfile.mkdtemp(prefix="kw_decl_")
    out = os.path.join(folder, "declarations.jsonl")
    rc = subprocess.call([sys.executable, os.path.join(HERE, "frontend.py")] + source_args + ["--out", out])
    if rc != 0:
        print("the front-end failed (%d)" % rc)
        return 1
    if not filecmp.cmp(out, committed, shallow=False):
        # Kept for the reader to compare.
        print("regenerated declarations differ from %s (new file: %s)" % (committed, out))
        return 1
    shutil.rmtree(folder, ignore_errors=True)
    print("regenerated declarations are identical to %s" % committed)
    return 0

if __name__ == "__main__":
    sys.exit(main())
