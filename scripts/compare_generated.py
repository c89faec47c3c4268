#!/usr/bin/env python3
"""Compares the generated IDL and C++ of two build trees with comments and
whitespace taken out, so that a change to how the generator lays its output
out (comments, line breaks, indentation) can be shown to change nothing else.

    scripts/compare_generated.py OLD_BUILD NEW_BUILD

Every .idl, .cpp and .h a build tree holds outside CMake's and GoogleTest's
own folders, moc's output and the Wine prefixes is compared with the file of
the same path in the other tree. Exits with 1 when any file differs or is
missing from either side."""

import os
import re
import sys

SKIPPED_FOLDERS = {"CMakeFiles", "googletest", "wine"}


def generated_files(root):
    for folder, subfolders, files in os.walk(root):
        subfolders[:] = [s for s in subfolders if s not in SKIPPED_FOLDERS]
        for name in files:
            if name.endswith((".idl", ".cpp", ".h")) and not name.startswith("moc_"):
                yield os.path.relpath(os.path.join(folder, name), root)


def without_comments_and_whitespace(text):
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    text = re.sub(r"//[^\n]*", "", text)
    return re.sub(r"\s+", "", text)


def main(old_root, new_root):
    old, new = set(generated_files(old_root)), set(generated_files(new_root))
    same, differing = 0, 0
    for path in sorted(old | new):
        if path not in old or path not in new:
            print("only in %s: %s" % (new_root if path in new else old_root, path))
            differing += 1
            continue
        texts = []
        for root in (old_root, new_root):
            with open(os.path.join(root, path), encoding="utf-8") as f:
                texts.append(without_comments_and_whitespace(f.read()))
        if texts[0] == texts[1]:
            same += 1
        else:
            print("differs: " + path)
            differing += 1
    print("%d files the same without comments and whitespace, %d differing" % (same, differing))
    return 1 if differing else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
