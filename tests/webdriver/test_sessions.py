"""Sessions: two applications driven at once by one kwdriver, the session
capabilities (kw: and their appium: names), attaching to a running
application, windows, and a session's end."""

import os
import signal
import subprocess
import threading
import time
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from conftest import (ROOT, SDK, app_path, http, options, session_url, start_driver, w3c_error,
                      windows_path)


def display(d):
    return d.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit")


def press(d, *texts):
    for text in texts:
        d.find_element(By.CSS_SELECTOR, f'Button[text="{text}"]').click()


def test_two_applications_at_once(new_session):
    calc = new_session("calculator")
    edits = new_session("lineedits")
    assert calc.session_id != edits.session_id
    edit = edits.find_element(By.CSS_SELECTOR, 'QGroupBox[title="Echo"] QLineEdit')
    # In turns, each session's commands reach its own application only.
    press(calc, "7")
    edit.send_keys("a")
    press(calc, "+", "8")
    edit.send_keys("b", Keys.HOME, "<")
    press(calc, "=")
    assert display(calc).text == "15"
    assert edit.get_attribute("text") == "<ab"
    assert edits.find_elements(By.CSS_SELECTOR, "Button") == []
    assert calc.find_elements(By.CSS_SELECTOR, "QGroupBox") == []
    assert set(calc.window_handles).isdisjoint(edits.window_handles)
    assert calc.title == "Calculator"
    assert edits.title == "Line Edits"
    # One ends; the other goes on.
    calc.quit()
    edit.send_keys("!")
    assert edit.get_attribute("text") == "<!ab"


def test_returned_capabilities(new_session):
    d = new_session("calculator")
    assert d.capabilities["platformName"].lower() == "windows"
    assert d.capabilities.get("browserName", "") == ""


@pytest.mark.parametrize("arguments", [
    {"kw__args": ["-reverse"]},
    {"appium__appArguments": "-reverse"},
])
def test_application_arguments(kwdriver, arguments):
    # Qt's own -reverse lays the calculator out right to left: 8 left of 7.
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator", **arguments))
    try:
        seven = d.find_element(By.CSS_SELECTOR, 'Button[text="7"]').rect["x"]
        eight = d.find_element(By.CSS_SELECTOR, 'Button[text="8"]').rect["x"]
        assert eight < seven
    finally:
        d.quit()


@pytest.mark.parametrize("app", [app_path("calculator"), windows_path(app_path("calculator"))])
def test_appium_app_in_either_path_form(kwdriver, app):
    o = options(None, appium__app=app)
    d = webdriver.Remote(command_executor=kwdriver.url, options=o)
    try:
        press(d, "9", "\u00d7", "9", "=")
        assert display(d).text == "81"
    finally:
        d.quit()


@pytest.mark.parametrize("name", ["kw__workingDir", "appium__appWorkingDir"])
def test_working_directory(kwdriver, tmp_path, name):
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator", **{name: str(tmp_path)}))
    try:
        here = d.execute_script('return new ActiveXObject("Scripting.FileSystemObject").GetAbsolutePathName(".");')
        assert here.lower().rstrip("\\") == windows_path(tmp_path).lower()
    finally:
        d.quit()


@pytest.mark.parametrize("name", ["kw__newCommandTimeout", "appium__newCommandTimeout"])
def test_idle_session_ends(kwdriver, name):
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator", **{name: 2}))
    url = session_url(d, "title")
    assert http("GET", url)[0] == 200
    time.sleep(6)
    status, code, _ = w3c_error(http("GET", url))
    assert (status, code) == (404, "invalid session id")


def test_max_items_caps_the_listed_rows(kwdriver):
    def rows(max_items):
        d = webdriver.Remote(command_executor=kwdriver.url, options=options("configdialog", kw__maxItems=max_items))
        try:
            return d.page_source.count("<Item ")
        finally:
            d.quit()
    # Two lists: the page icons (3 rows) and the Update page's packages (3).
    assert rows(100) == 6
    assert rows(2) == 4


def test_window_handles_and_rect(new_session):
    d = new_session("addressbook")                   # a main window that can be resized
    handles = d.window_handles
    assert handles == [d.current_window_handle]
    d.switch_to.window(handles[0])
    assert d.title == "Address Book"
    d.set_window_rect(x=50, y=60, width=520, height=400)
    rect = d.get_window_rect()
    assert (rect["x"], rect["y"], rect["width"], rect["height"]) == (50, 60, 520, 400)
    # The window's own widget is as wide, less its frame.
    widths = [int(w.get_attribute("width")) for w in d.find_elements(By.CSS_SELECTOR, "QMainWindow")]
    assert len(widths) == 1 and 500 <= widths[0] <= 520


def test_dialog_is_a_second_window(new_session):
    d = new_session("addressbook")
    main = d.current_window_handle
    d.find_element(By.CSS_SELECTOR, 'QPushButton[text="Add"]').click()
    deadline = time.monotonic() + 10
    while len(d.window_handles) < 2 and time.monotonic() < deadline:
        time.sleep(0.2)
    dialog = [h for h in d.window_handles if h != main]
    assert len(dialog) == 1
    d.switch_to.window(dialog[0])
    assert d.title == "Add a Contact"
    d.close()                                        # closes the dialog window
    d.switch_to.window(main)
    assert d.window_handles == [main]


@pytest.fixture
def running_calculator(kwdriver):
    """A calculator started outside kwdriver, on the driver's Wine prefix and display."""
    env = dict(kwdriver.environment, WINEPATH=windows_path(SDK / "lib"))
    process = subprocess.Popen([str(ROOT / "cmake" / "wine-run.sh"), "--prefix", kwdriver.prefix.name, "--display",
                                app_path("calculator")], env=dict(env, KW_WINE_ROOT=str(kwdriver.prefix.parent)),
                               cwd=str(Path(app_path("calculator")).parent), stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    yield process
    try:
        os.killpg(process.pid, 15)
        process.wait(timeout=15)
    except (ProcessLookupError, subprocess.TimeoutExpired):
        pass


def test_attach_leaves_the_application_running(kwdriver, running_calculator):
    def attach():
        deadline = time.monotonic() + 60
        while True:
            try:
                return webdriver.Remote(command_executor=kwdriver.url,
                                        options=options(None, kw__attach="calculator.exe"))
            except Exception:
                if time.monotonic() > deadline:
                    raise
                time.sleep(1)
    first = attach()
    press(first, "6", "\u00d7", "7", "=")
    # The session ends while a script of it loops without a limit: the
    # loop is cut off, and the application goes on.
    http("POST", session_url(first, "timeouts"), {"script": None})
    looping = threading.Thread(target=http, args=("POST", session_url(first, "execute", "sync"),
                                                  {"script": "for (;;) {}", "args": []}), kwargs={"timeout": 60})
    looping.start()
    time.sleep(1)
    first.quit()
    looping.join()
    assert running_calculator.poll() is None         # attached, so left running
    second = attach()
    try:
        assert display(second).text == "42"          # what the first session left
    finally:
        second.quit()


def programs_in_prefix(prefix, image):
    """Linux ids of the Wine processes of `image` running in `prefix`."""
    found = []
    for entry in Path("/proc").iterdir():
        try:
            command = (entry / "cmdline").read_bytes().split(b"\0")[0].decode(errors="replace")
            environment = (entry / "environ").read_bytes().split(b"\0")
        except OSError:
            continue
        if command.lower().endswith(image) and f"WINEPREFIX={prefix}".encode() in environment:
            found.append(int(entry.name))
    return found


def test_ctrl_c_ends_the_launched_applications_while_a_client_stays_connected(request):
    driver = start_driver(request, "ctrl_c", script=True)   # by driver.sh, as a user starts it
    d = webdriver.Remote(command_executor=driver.url, options=options("calculator"))
    assert display(d).text == "0"        # the client keeps its connection open from here on
    assert programs_in_prefix(driver.prefix, "calculator.exe")
    started = time.monotonic()
    os.killpg(driver.process.pid, signal.SIGINT)
    driver.process.wait(timeout=60)
    assert time.monotonic() - started < 15, driver.log_text()
    assert "did not end" not in driver.log_text()
    deadline = time.monotonic() + 10
    while programs_in_prefix(driver.prefix, "calculator.exe") and time.monotonic() < deadline:
        time.sleep(0.2)
    assert not programs_in_prefix(driver.prefix, "calculator.exe")
