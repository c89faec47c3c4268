"""Writing the generator's outputs."""

import os


def write_if_changed(path, text):
    """Writes `text` (UTF-8, \\n line ends) to `path` unless the file already
    holds exactly that, so that an unchanged output keeps its time stamp and
    the build stays incremental. The new file replaces the old one whole:
    a reader never sees half of it."""
    try:
        with open(path, encoding="utf-8", newline="") as f:
            if f.read() == text:
                return False
    except FileNotFoundError:
        pass
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)
    os.replace(tmp, path)
    return True
