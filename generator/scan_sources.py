#!/usr/bin/env python3
"""Template members that Qt's own implementation files instantiate.

A container, iterator or QFlags instance carries the members that Qt's
QtCore and QtGui sources use, not every member of the template.  This
tool compiles those sources (the Windows build's files) with mingw-w64's
g++ and writes the symbols of the functions that come out, for the class
templates the catalogue names, to a list the front-end reads next to the
headers' own instantiations.  It also instantiates, whole, each template
that an exported Qt class derives from (QPolygon : QVector<QPoint>): a
DLL that exports the class exports its base instance with every member.

Slow (some minutes on two cores), so its output is committed like the
declarations file:

  scan_sources.py --qt-source DIR [--out FILE] [--jobs N] [--cc G++]

Exit status 0 on success; 2 when the compiler or the Qt source is missing.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import catalogue as catalogue_mod
import frontend
from instantiation import assembly_symbols, demangle_symbols
from output import write_if_changed

DEFAULT_OUT = os.path.join(frontend.DEFAULT_CONFIG_DIR, "instantiated.txt")

# Per module: source folder, export macro, defines of Qt's own build.
COMMON_DEFINES = ["_WIN64", "UNICODE", "QT_MAKEDLL", "QT_NO_USING_NAMESPACE",
                  "QT_ASCII_CAST_WARNINGS", "QT_MOC_COMPAT", "QT_USE_QSTRINGBUILDER",
                  "_USE_MATH_DEFINES"]
MODULES = (
    ("QtCore", "corelib", "Q_CORE_EXPORT", ["QT_BUILD_CORE_LIB"]),
    ("QtGui", "gui", "Q_GUI_EXPORT", ["QT_BUILD_GUI_LIB", "Q_INTERNAL_QAPP_SRC",
                                      "QT_NO_EGL", "QT_NO_DIRECTWRITE", "QT_NO_FREETYPE",
                                      "QT_NO_CUPS", "WINVER=0x0601", "_WIN32_WINNT=0x0601"]),
)
THIRD_PARTY = ("zlib", "harfbuzz/src", "wintab", "libpng")

# Files of other platforms, by suffix or folder; everything else under the
# module folder is taken as part of the Windows build.
OTHER_PLATFORM_SUFFIX = re.compile(
    r"_(unix|mac|macx|cocoa|carbon|symbian|s60|qws|qpa|x11|wince|integrity|nacl|"
    r"blackberry|glib|inotify|kqueue|dnotify|fsevents|iconv|icu|vxworks|posix|linux|"
    r"gtk|maemo5?|harmattan|fontconfig|ft|fb|egl|directfb|vg|neon|iwmmxt|mmx|3dnow|"
    r"sse2?|ssse3|sse4|avx|arm|mips_dspr?2?|ce|mac_p|x11_p|generic)\.cpp$")
OTHER_PLATFORM_PART = re.compile(
    r"/(embedded|mac|s60framework|symbian|egl|arch)/|qt_s60|qt_mac|_qws|qkde|qgtk|"
    r"qcups|qs60|qwindowsce|qwindowsmobile|qcocoa|qmacstyle|qx11|qkbd|qmouse|"
    r"qdecoration|qscreen|qtransportauth|qiconvcodec|qcrashhandler|qtcore_eval|"
    r"qelfparser|qguieventdispatcher_glib|_mac_|_qpa_|_symbian_")
# Sources that another source includes under a condition the scan cannot
# see by their text alone.
INCLUDED_ELSEWHERE = ("qunicodetables.cpp", "qstringmatcher.cpp")

# Label of the symbols of exported template bases, listed before the modules.
EXPORTED = "exported"

# Catalogue names that are namespaces, not classes: their members are not
# a class's members.
NAMESPACES = ("std",)

_GENERATED_INCLUDE = re.compile(r'#\s*include\s+["<]((?:moc_\w+\.cpp)|(?:\w+\.moc)|(?:ui_\w+\.h))[">]')
_SOURCE_INCLUDE = re.compile(r'#\s*include\s+"(?:[\w./]*/)?(\w+\.cpp)"')
_MODULE_HEADER_INCLUDE = re.compile(r'#\s*include\s+<(?:Qt\w+/)?(Qt[A-Z]\w*)>')
_EXPORTED_TEMPLATE_BASE = re.compile(
    r"^class\s+%s\s+\w+\s*:\s*public\s+(Q\w+<[^>{]+>)", re.M)


def windows_sources(qt_source, folder):
    """The module's sources of the Windows build, without those that other
    sources include (qcssscanner.cpp, qfontdatabase_win.cpp)."""
    root = os.path.join(qt_source, "src", folder)
    found = []
    included = set(INCLUDED_ELSEWHERE)
    for dirpath, _dirs, files in os.walk(root):
        for name in files:
            if not name.endswith(".cpp"):
                continue
            path = os.path.join(dirpath, name)
            with open(path, encoding="latin-1") as f:
                included.update(n for n in _SOURCE_INCLUDE.findall(f.read())
                                if not n.startswith("moc_"))
            rel = os.path.relpath(path, qt_source).replace(os.sep, "/")
            if OTHER_PLATFORM_SUFFIX.search(name) or OTHER_PLATFORM_PART.search("/" + rel):
                continue
            found.append(rel)
    return sorted(r for r in found if r.rsplit("/", 1)[-1] not in included)


def make_stub_folder(qt_source, sources, include_root):
    """Empty stand-ins for the files Qt's build generates (moc output, ui
    headers): they declare nothing a container instance depends on.  Also
    the module-wide headers Qt's installer writes (<QtDebug> for qdebug.h,
    <QtAlgorithms> for qalgorithms.h) where a source uses one."""
    stubs = os.path.join(include_root, "generated")
    os.makedirs(stubs, exist_ok=True)
    for rel in sources:
        with open(os.path.join(qt_source, rel), encoding="latin-1") as f:
            text = f.read()
        for name in _GENERATED_INCLUDE.findall(text):
            open(os.path.join(stubs, name), "w").close()
        for name in _MODULE_HEADER_INCLUDE.findall(text):
            header = "q" + name[2:].lower() + ".h"
            for module, _folder, _export, _defines in MODULES:
                target = os.path.join(include_root, module, header)
                alias = os.path.join(include_root, module, name)
                if os.path.isfile(target) and not os.path.exists(alias):
                    with open(alias, "w") as f:
                        f.write('#include "%s"\n' % header)
    return stubs


def exported_template_bases(qt_source, module, folder, export_macro):
    """(header, base) for each template instance an exported class of the
    module derives from; header is written <Module/file.h>."""
    pattern = re.compile(_EXPORTED_TEMPLATE_BASE.pattern % export_macro, re.M)
    found = set()
    for dirpath, _dirs, files in os.walk(os.path.join(qt_source, "src", folder)):
        for name in files:
            if name.endswith(".h") and not name.endswith("_p.h"):
                with open(os.path.join(dirpath, name), encoding="latin-1") as f:
                    for base in pattern.findall(f.read()):
                        found.add(("%s/%s" % (module, name), base))
    return sorted(found)


def compile_symbols(cmd, source, asm):
    """Compile one file to assembly; the function symbols it defines, or
    None when it does not compile here."""
    proc = subprocess.run(cmd + ["-o", asm, source], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
    if proc.returncode != 0:
        return None
    symbols = assembly_symbols(asm)
    os.remove(asm)
    return symbols


def catalogue_member_filter(cat):
    """Predicate on demangled names: a member of a catalogue class or of a
    class template the catalogue instantiates (QList<...>::append,
    QFlags<...>::operator|, QStringList::join)."""
    templates = sorted({e.type_name.split("<", 1)[0] for e in cat.entries if "<" in e.type_name})
    plain = sorted(e.type_name for e in cat.entries
                   if "<" not in e.type_name and e.type_name not in NAMESPACES)
    head = re.compile(r"^(?:(?:%s)<|(?:%s)::)" % ("|".join(re.escape(n) for n in templates),
                                                 "|".join(re.escape(n) for n in plain)))
    return lambda text: bool(head.match(text))


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--qt-source", required=True)
    ap.add_argument("--out", default=DEFAULT_OUT)
    ap.add_argument("--config-dir", default=frontend.DEFAULT_CONFIG_DIR)
    ap.add_argument("--catalogue", default=os.path.join(frontend.REPO, "typelib", "catalogue"))
    ap.add_argument("--cc", default="x86_64-w64-mingw32-g++")
    ap.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    ap.add_argument("--keep-work")
    args = ap.parse_args(argv)

    if shutil.which(args.cc) is None:
        print("scan_sources: %s not found (skipped)" % args.cc)
        return 2
    if not os.path.isfile(os.path.join(args.qt_source, "src", "corelib", "global", "qglobal.h")):
        print("scan_sources: no Qt source at %s (skipped)" % args.qt_source)
        return 2
    qt = os.path.abspath(args.qt_source)
    cat = catalogue_mod.load(args.catalogue)
    work = args.keep_work or tempfile.mkdtemp(prefix="kw_scan_")
    os.makedirs(work, exist_ok=True)
    try:
        includes = frontend.make_include_tree(qt, work, os.path.abspath(args.config_dir))
        inc_root = includes[0]
        private = [os.path.join(inc_root, m, "private") for m, _f, _e, _d in MODULES]
        third = [os.path.join(qt, "src", "3rdparty", t) for t in THIRD_PARTY]
        jobs = []   # (module, label, command, source)
        sources = {folder: windows_sources(qt, folder) for _m, folder, _e, _d in MODULES}
        templates = [t for module, folder, export_macro, _d in MODULES
                     for t in exported_template_bases(qt, module, folder, export_macro)]
        stubs = make_stub_folder(qt, [r for rels in sources.values() for r in rels], inc_root)
        # Access control off: Qt's Windows sources rely on friendships the
        # other compiler grants more widely.
        base_cmd = [args.cc, "-std=gnu++98", "-w", "-fno-access-control", "-O0", "-S"]
        for module, folder, _export, defines in MODULES:
            flags = ["-D" + d for d in COMMON_DEFINES + defines]
            search = includes + private + [os.path.join(qt, "src", folder),
                                           os.path.join(qt, "src", "corelib", "global")] \
                + third + [stubs]
            for rel in sources[folder]:
                cmd = base_cmd + flags + ["-I" + os.path.dirname(os.path.join(qt, rel))] + \
                    ["-I" + p for p in search]
                jobs.append((module, rel, cmd, os.path.join(qt, rel)))
        if templates:
            tu = os.path.join(work, "exported_bases.cpp")
            with open(tu, "w") as f:
                f.write("".join("#include <%s>\n" % h for h, _t in templates))
                f.write("".join("template class %s;\n" % t for _h, t in templates))
            jobs.append((EXPORTED, "exported template bases",
                         base_cmd + ["-D_WIN64", "-DUNICODE", "-DQT_DLL"]
                         + ["-I" + p for p in includes], tu))

        def run(i_job):
            i, (module, label, cmd, source) = i_job
            return module, label, compile_symbols(cmd, source, os.path.join(work, "%d.s" % i))

        labels = [EXPORTED] + [m for m, _f, _e, _d in MODULES]
        by_module = {m: set() for m in labels}
        failed = []
        with ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
            for module, label, found in pool.map(run, enumerate(jobs)):
                if found is None:
                    failed.append(label)
                else:
                    by_module[module] |= found
        wanted = catalogue_member_filter(cat)
        demangled = demangle_symbols(args.cc, set().union(*by_module.values()))
        kept, seen = [], set()
        # A symbol is listed once, under the first label that emits it.
        for module in labels:
            mine = sorted(s for s in by_module[module] - seen if wanted(demangled[s]))
            kept += ["%s %s" % (module, s) for s in mine]
            seen |= by_module[module]
        lines = ["# Generated by scan_sources.py from Qt %s: symbols of the catalogue's class"
                 % frontend.qt_version(qt),
                 "# and class template members that Qt's QtCore and QtGui sources emit, compiled with %s,"
                 % args.cc,
                 "# one per line after the module whose sources emit it (QtCore first), or after",
                 "# '%s' for the members of template bases exported with a class." % EXPORTED,
                 "# Exported template bases instantiated whole: %s"
                 % ", ".join(t for _h, t in templates),
                 "# Sources compiled: %d; not compiling here: %s"
                 % (len(jobs) - len(failed), ", ".join(sorted(failed)) or "none")]
        write_if_changed(args.out, "\n".join(lines + kept) + "\n")
        print("scan_sources: %d sources, %d not compiling; %d member symbols; wrote %s"
              % (len(jobs), len(failed), len(kept), args.out))
        return 0
    finally:
        if not args.keep_work:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
