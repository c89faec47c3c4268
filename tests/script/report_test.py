#!/usr/bin/env python3
"""kwscript's reports as a user reads them: what it prints on standard output
(a pipe or a file: LF line ends only), its exit status and its JUnit file.

    report_test.py GROUP KWSCRIPT.exe WINE_RUN [APPLICATIONS_FOLDER]

GROUP is one of
  values   app.echo and "" + obj / CStr(obj) for a table of values, per engine
  checks   app.check / app.checkEqual on the demo form: failure lines, the
           summary, the status, the JUnit file, a thrown error by its message
  json     --members --json: standard output is one JSON document
  apps     Qt's address book and text editor: checks reported from inside an
           application (also one that crashes), a deleted dialog echoed, then --tree (items of a table, a cut document, each
           menu once) and --tree --json
Prints every failed expectation and exits 1 when there is one.
"""
import json
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

HERE = os.path.dirname(os.path.abspath(__file__))
failures = []
# The Wine prefix of the group's runs: the applications get one of their
# own, used on their display alone (the demo form's runs each make one).
PREFIX = "script"


def expect(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL:", what)
    return ok


def windows(path):
    """A Unix path as the Windows path Wine's Z: drive gives it."""
    return "Z:" + os.path.abspath(path).replace("/", "\\")


class Run:
    def __init__(self, status, raw, err):
        self.status = status
        self.raw = raw
        self.text = raw.decode("utf-8", "replace")
        self.lines = self.text.splitlines()
        self.err = err.decode("utf-8", "replace")


def kwscript(*args):
    """Runs kwscript with its standard output a pipe, or a file when it leaves
    an application running (which would hold a pipe open)."""
    command = [WINE_RUN, "--prefix", PREFIX, "--display-if-none", KWSCRIPT, *args]
    if "--keep" in args:
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            status = subprocess.call(command, stdout=out, stderr=err, timeout=280)
            out.seek(0)
            err.seek(0)
            run = Run(status, out.read(), err.read())
    else:
        done = subprocess.run(command, capture_output=True, timeout=280)
        run = Run(done.returncode, done.stdout, done.stderr)
    print("$ kwscript", " ".join(args), "->", run.status)
    print(run.text + run.err)
    expect(b"\r" not in run.raw, "standard output has LF line ends only: " + " ".join(args))
    return run


def parsed(run, what):
    """Standard output as one JSON document, or None after saying why not."""
    try:
        return json.loads(run.text)
    except ValueError as error:
        expect(False, "%s: standard output is not one JSON document (%s)" % (what, error))
        return None


def script_file(name, text):
    path = os.path.join(WORK, name)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    return path


def kept_pid(run):
    """The id of an application left running, said on standard error."""
    pattern = r"keeps running as process (\d+)"
    expect(re.search(pattern, run.err), "the process id of an application left running is said on standard error")
    found = re.search(pattern, run.err + run.text)
    return found.group(1) if found else None


def junit_suite(path, what):
    """The <testsuite> of a JUnit file, or None after saying why not."""
    if not expect(os.path.exists(path), "%s: no JUnit file" % what):
        return None
    return ET.parse(path).getroot().find("testsuite")


def end_application(pid):
    if pid:
        subprocess.call([WINE_RUN, "--prefix", PREFIX, "C:\\windows\\system32\\taskkill.exe", "/F", "/PID", pid],
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


# --- values ----------------------------------------------------------------
# (expression, what app.echo prints) per engine; "obj" is the OK button.
JSCRIPT_VALUES = [
    ("true", "true"), ("false", "false"), ("null", "null"), ("undefined", "undefined"),
    ("123", "123"), ("-1.5", "-1.5"), ("0.1 + 0.2", "0.30000000000000004"), ("1 / 3", "0.3333333333333333"),
    ("1e21", "1e+21"), ("123456789012345680000", "123456789012345680000"), ("0.000001", "0.000001"),
    ("1e-7", "1e-7"), ("1 / 0", "Infinity"), ("0 / 0", "NaN"), ("'text'", "text"), ("[1, 'a']", "1,a"),
    ("obj", 'QPushButton "okButton" "OK"'), ('"" + obj', 'QPushButton "okButton" "OK"'),
    ("app.find('nameEdit')", 'QLineEdit "nameEdit"'), ("app.find('okButton').QAbstractButton_group()", "null"),
    ("app.str('made here')", 'QString "made here"'),
    ("app.find('okButton').parentWidget()", 'DemoForm "kwscript demo form"'),
]
VBSCRIPT_VALUES = [
    ("True", "True"), ("False", "False"), ("Null", "Null"), ("Empty", "Empty"), ("Nothing", "Nothing"),
    ("123", "123"), ("2.5", "2.5"), ('"text"', "text"),
    ("obj", 'QPushButton "okButton" "OK"'), ("CStr(obj)", 'QPushButton "okButton" "OK"'),
    ('"" & obj', 'QPushButton "okButton" "OK"'), ("app.find(\"nameEdit\")", 'QLineEdit "nameEdit"'),
]


def values_of(language, table):
    if language == "js":
        code = 'var obj = app.find("okButton");\n' + "".join("app.echo(%s);\n" % e for e, _ in table)
    else:
        code = 'Set obj = app.find("okButton")\n' + "".join("app.echo %s\n" % e for e, _ in table)
    run = kwscript(windows(script_file("values." + language, code)))
    expect(run.status == 0, "values.%s: exit status %d, expected 0" % (language, run.status))
    expect(len(run.lines) >= len(table), "values.%s: a line for each value" % language)
    for (expression, printed), line in zip(table, run.lines):
        expect(line == printed, "%s: app.echo(%s) printed %r, not %r" % (language, expression, line, printed))


def test_values():
    values_of("js", JSCRIPT_VALUES)
    values_of("vbs", VBSCRIPT_VALUES)


# --- checks ----------------------------------------------------------------
# Both check scripts make the same checks: (line in the .js, line in the .vbs,
# test case name, failure message or None).
CHECKS = [
    (4, 3, "the OK button is there", None),
    (5, 4, "its text", None),
    (7, 6, "the name typed", 'expected "Grace", got "Ada"'),
    (8, 7, "a number is not a string", 'expected "3", got 3'),
    (9, 8, None, "check failed"),
    (10, 9, "one button, two facades", None),
    (11, 10, "the last check", None),
]
# The error follows the last check on its line: its column is the file's.
THROWN_AT = {"js": "11:36", "vbs": "10:36"}


def checks_of(language):
    path = os.path.join(HERE, "report_checks." + language)
    report = os.path.join(WORK, "checks_%s.xml" % language)
    run = kwscript("--junit", windows(report), windows(path))
    column = 0 if language == "js" else 1
    shown = windows(path)
    expect(run.status == 1, "report_checks.%s: exit status %d, expected 1" % (language, run.status))
    for check in CHECKS:
        line, name, detail = check[column], check[2], check[3]
        if detail is None:
            continue
        printed = "%s:%d: check failed" % (shown, line) + (": " + name if name else "") + \
                  (": " + detail if detail != "check failed" else "")
        expect(printed in run.lines, "%s: no line %r" % (language, printed))
    thrown = "%s:%s: the script gives up here" % (shown, THROWN_AT[language])
    expect(thrown in run.lines, "%s: the thrown error is not reported as %r" % (language, thrown))
    expect(run.lines[-1:] == ["4 passed, 3 failed"], "%s: the run does not end with the summary" % language)
    suite = junit_suite(report, language)
    if suite is None:
        return
    cases = suite.findall("testcase")
    expect((suite.get("tests"), suite.get("failures"), suite.get("errors")) == ("8", "3", "1"),
           "%s: the suite counts %s" % (language, suite.attrib))
    for check, case in zip(CHECKS, cases):
        line, name, detail = check[column], check[2], check[3]
        failure = case.find("failure")
        expect(case.get("name") == (name or "check at line %d" % line) and case.get("line") == str(line),
               "%s: test case %s" % (language, case.attrib))
        expect((failure.get("message") if failure is not None else None) == detail,
               "%s: test case %s fails with %r" % (language, case.get("name"), detail))
    error = cases[-1].find("error") if len(cases) == len(CHECKS) + 1 else None
    expect(error is not None and error.get("message") == thrown,
           "%s: the script error is not the last test case" % language)


def test_checks():
    checks_of("js")
    checks_of("vbs")
    # Passing checks alone: status 0, and still the summary.
    run = kwscript(windows(script_file("passing.js", 'app.check(true, "one");\napp.checkEqual(2, 2, "two");\n')))
    expect(run.status == 0 and run.lines[-1:] == ["2 passed, 0 failed"], "passing checks: status 0 and the summary")


# --- json ------------------------------------------------------------------
# (arguments, exit status, the type the document is about; None: no document)
MEMBERS_JSON = [
    (["--members", "QPushButton", "--json"], 0, "QPushButton"),
    (["--members", "NoSuchType", "--json"], 1, None),
]


def test_json():
    for args, status, about in MEMBERS_JSON:
        run = kwscript(*args)
        what = " ".join(args)
        expect(run.status == status, "%s: exit status %d, expected %d" % (what, run.status, status))
        if about is None:
            expect(run.text == "" and "kwscript: " in run.err, "%s: nothing on standard output, why on standard error"
                   % what)
        else:
            document = parsed(run, what)
            expect(document is not None and document.get("type") == about, "%s: the document is about %s" % (what, about))


# --- apps ------------------------------------------------------------------
def nodes(tree):
    for node in tree:
        yield node
        yield from nodes(node.get("children", []))


def test_address_book():
    run = kwscript("--junit", windows(os.path.join(WORK, "addressbook.xml")),
                   "--launch", windows(os.path.join(APPS, "addressbook.exe")), "--keep", "--",
                   windows(os.path.join(HERE, "report_addressbook.js")))
    pid = kept_pid(run)
    if pid is None:
        return
    try:
        expect(run.status == 1, "address book: a check failed inside the application: exit status %d, expected 1"
               % run.status)
        expect(run.lines[-1:] == ["4 passed, 1 failed"], "address book: the counts crossed from the application")
        expect("the last dialog, closed: QDialog (deleted)" in run.lines,
               "address book: a dialog the application deleted prints as deleted")
        suite = junit_suite(os.path.join(WORK, "addressbook.xml"), "address book")
        expect(suite is not None and (suite.get("tests"), suite.get("failures")) == ("5", "1"),
               "address book: JUnit file with 5 test cases, 1 failed")
        rows = ['row 0: "Ada Lovelace" | "1 Main Street"', 'row 1: "Bertrand Russell" | "2 Main Street"',
                'row 2: "Claude Shannon" | "3 Main Street"']
        # (--max-items, the rows listed, the rows left out)
        for limit, listed, left in [(None, rows, []), ("2", rows[:2], rows[2:])]:
            tree = kwscript("--tree", *(["--max-items", limit] if limit else []), "--attach", pid)
            shown = [line.strip() for line in tree.lines]
            expect("items: 3 rows \u00d7 2 columns" in shown, "address book: the table's items are counted")
            for row in listed:
                expect(row in shown, "address book: --max-items %s lists %s" % (limit, row))
            for row in left:
                expect(row not in shown, "address book: --max-items %s leaves out %s" % (limit, row))
            expect(bool(left) == ("\u2026 2 rows listed (--max-items N lists more)" in shown),
                   "address book: says when rows are left out")
        tree = kwscript("--tree", "--json", "--attach", pid)
        tables = [node for node in nodes(parsed(tree, "address book") or []) if node.get("items", {}).get("rows") == 3]
        expect(len(tables) == 1 and [item["cells"] for item in tables[0]["items"]["listed"]] ==
               [["Ada Lovelace", "1 Main Street"], ["Bertrand Russell", "2 Main Street"],
                ["Claude Shannon", "3 Main Street"]], "address book: --tree --json lists the table's items")
    finally:
        end_application(pid)


def test_text_editor():
    document = "".join("Line %d of a long document.\n" % i for i in range(100))
    cut = document[:60].replace("\n", "\\n") + "\u2026(%d chars)" % len(document)
    run = kwscript("--launch", windows(os.path.join(APPS, "application.exe")), "--keep", "--",
                   windows(os.path.join(HERE, "report_document.js")))
    pid = kept_pid(run)
    if pid is None:
        return
    try:
        expect(run.status == 0, "text editor: exit status %d, expected 0" % run.status)
        expect('QPlainTextEdit "%s"' % cut in run.lines, "text editor: app.echo(editor) cuts the document")
        tree = kwscript("--tree", "--attach", pid)
        expect(any(line.strip().startswith('QPlainTextEdit plainText="%s" ' % cut) for line in tree.lines),
               "text editor: --tree cuts the document after 60 characters")
        expect(max(map(len, tree.lines)) < 200, "text editor: no line of --tree is longer than 200 characters")
        for menu in ["&File", "&Edit", "&Help"]:
            count = sum(1 for line in tree.lines if line.strip().startswith('QMenu title="%s"' % menu))
            expect(count == 1, "text editor: menu %s shown %d times in --tree" % (menu, count))
        tree = kwscript("--tree", "--json", "--attach", pid)
        found = list(nodes(parsed(tree, "text editor") or []))
        for menu in ["&File", "&Edit", "&Help"]:
            count = sum(1 for node in found if node["class"] == "QMenu" and node.get("title") == menu)
            expect(count == 1, "text editor: menu %s shown %d times in --tree --json" % (menu, count))
        expect([node.get("plainText") for node in found if node["class"] == "QPlainTextEdit"] ==
               [document[:60] + "\u2026(%d chars)" % len(document)],
               "text editor: --tree --json cuts the document")
    finally:
        end_application(pid)


def test_tree_of_kept_application():
    """--tree --json of an application left running: still JSON alone."""
    run = kwscript("--tree", "--json", "--launch", windows(os.path.join(APPS, "calculator.exe")), "--keep")
    pid = kept_pid(run)
    try:
        tree = parsed(run, "--tree --json --keep")
        expect(tree is not None and any(node["class"] == "Calculator" for node in tree),
               "--tree --json --keep: the calculator's window is in the document")
    finally:
        end_application(pid)


def test_crash():
    """An application that crashes: the checks made before still count."""
    crashing = os.path.join(os.path.dirname(KWSCRIPT), "kwcrashapp.exe")
    if not expect(os.path.exists(crashing), "no %s (built with the attach tests)" % crashing):
        return
    report = os.path.join(WORK, "crash.xml")
    run = kwscript("--junit", windows(report), "--launch", windows(crashing), "--",
                   windows(os.path.join(HERE, "report_crash.js")))
    expect(run.status == 4, "crash: exit status %d, expected 4" % run.status)
    expect(run.lines[-1:] == ["1 passed, 0 failed"], "crash: the check made before the crash is counted")
    suite = junit_suite(report, "crash")
    error = suite.find("testcase/error") if suite is not None else None
    expect(suite is not None and suite.get("tests") == "2" and error is not None and
           "the application crashed" in error.get("message"), "crash: the JUnit file has the check and the crash")


def test_apps():
    test_address_book()
    test_text_editor()
    test_tree_of_kept_application()
    test_crash()


if __name__ == "__main__":
    group, KWSCRIPT, WINE_RUN = sys.argv[1:4]
    APPS = sys.argv[4] if len(sys.argv) > 4 else ""
    if group == "apps":
        PREFIX = "report"
    if group == "apps" and not os.environ.get("DISPLAY"):
        # One display for the application and every kwscript that attaches to it.
        os.execvp("xvfb-run", ["xvfb-run", "-a", "-s", "-screen 0 1280x1024x24", sys.executable, *sys.argv])
    with tempfile.TemporaryDirectory() as WORK:
        {"values": test_values, "checks": test_checks, "json": test_json, "apps": test_apps}[group]()
    print("%s: %d failed expectation(s)" % (group, len(failures)) if failures else "%s: all passed" % group)
    sys.exit(1 if failures else 0)
