"""Every W3C WebDriver error that a client can provoke from kwdriver: each
answer's HTTP status, error code and message as the wire carries them (read
with plain HTTP, so that no client library's mapping stands in between),
and the session still answering afterwards."""

import re
import threading
import time

import pytest
from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait

from conftest import app_path, http, options, session_url, start_driver, w3c_error

STATUS = {
    "invalid argument": 400, "invalid selector": 400, "element not interactable": 400,
    "invalid element state": 400, "no such element": 404, "stale element reference": 404,
    "invalid session id": 404, "unknown command": 404, "no such window": 404, "no such alert": 404,
    "unknown method": 405, "javascript error": 500, "script timeout": 500, "timeout": 500,
    "session not created": 500, "unexpected alert open": 500, "unsupported operation": 500,
    "move target out of bounds": 500,
}


def expect(answer, error, message=None):
    status, code, text = w3c_error(answer)
    assert (status, code) == (STATUS[error], error), f"expected {error}, got {status} {code}: {text}"
    assert text, "an error answer says what went wrong"
    if message:
        assert re.search(message, text), f"message {text!r} does not match {message!r}"
    return text


@pytest.fixture(scope="module")
def calc(kwdriver):
    # Never idle out: some tests here keep the driver busy for a minute.
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator", kw__newCommandTimeout=0))
    yield d
    d.quit()


def element_id(d, css):
    return d.find_element(By.CSS_SELECTOR, css).id


def still_answers(d):
    assert d.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit").tag_name == "QLineEdit"


# --- errors of a command's arguments, in one calculator session -------------

FIND = [
    # strategy, selector, error, what the message must say
    ("css selector", "QPushButton#nothingHasThisName", "no such element", None),
    ("xpath", "//NoSuchClass", "no such element", None),
    ("id", "nothingHasThisName", "no such element", None),
    ("link text", "no button reads this", "no such element", None),
    ("css selector", 'Button[text="7"', "invalid selector", r"character 16\b"),
    ("css selector", "QPushButton:bogus", "invalid selector", r"character 13\b"),
    ("css selector", "Button#", "invalid selector", r"character 8\b"),
    ("xpath", "//Button[", "invalid selector", None),
    ("xpath", "count(//Button)", "invalid selector", None),     # not a node set
    ("no such strategy", "x", "invalid argument", None),
    ("css selector", 7, "invalid argument", None),
]


@pytest.mark.parametrize("using, value, error, message", FIND)
def test_find_errors(calc, using, value, error, message):
    expect(http("POST", session_url(calc, "element"), {"using": using, "value": value}), error, message)
    still_answers(calc)


@pytest.mark.parametrize("path, body, error", [
    (("timeouts",), {"implicit": -1}, "invalid argument"),
    (("timeouts",), {"script": "soon"}, "invalid argument"),
    (("window", "rect"), {"width": -5, "height": 10}, "invalid argument"),
    (("execute", "sync"), {"script": "return 1;"}, "invalid argument"),          # no args
    (("execute", "sync"), {"script": 42, "args": []}, "invalid argument"),
    (("actions",), {"actions": "click"}, "invalid argument"),
    (("actions",), {"actions": [{"type": "pointer", "id": "mouse", "actions": [
        {"type": "pointerMove", "origin": "viewport", "x": -10000, "y": 0}]}]}, "move target out of bounds"),
    (("window",), {"handle": "no-such-window"}, "no such window"),
    (("alert", "accept"), {}, "no such alert"),
    (("alert", "text"), {"text": "x"}, "no such alert"),
    (("execute", "sync"), {"script": 'throw new Error("boom");', "args": []}, "javascript error"),
    (("execute", "sync"), {"script": "return (1 + ;", "args": []}, "javascript error"),
    (("url",), {"url": "http://example.com/"}, "unsupported operation"),
    (("back",), {}, "unsupported operation"),
    (("forward",), {}, "unsupported operation"),
    (("refresh",), {}, "unsupported operation"),
    (("cookie",), {"cookie": {"name": "a", "value": "b"}}, "unsupported operation"),
])
def test_post_errors(calc, path, body, error):
    expect(http("POST", session_url(calc, *path), body), error)
    still_answers(calc)


@pytest.mark.parametrize("method, path, error", [
    ("GET", ("alert", "text"), "no such alert"),
    ("GET", ("url",), "unsupported operation"),
    ("GET", ("cookie",), "unsupported operation"),
    ("GET", ("cookie", "a"), "unsupported operation"),
    ("DELETE", ("cookie",), "unsupported operation"),
    ("GET", ("no", "such", "command"), "unknown command"),
    ("POST", ("title",), "unknown method"),
    ("PUT", ("element",), "unknown method"),
    ("GET", ("element", "no-such-element", "text"), "no such element"),
])
def test_other_errors(calc, method, path, error):
    expect(http(method, session_url(calc, *path), None if method != "POST" else {}), error)
    still_answers(calc)


def test_unknown_paths_outside_sessions(kwdriver):
    expect(http("GET", kwdriver.url + "/no/such/command"), "unknown command")
    expect(http("PUT", kwdriver.url + "/status", {}), "unknown method")


def test_invalid_element_state_on_a_read_only_edit(calc):
    display = element_id(calc, "Calculator > QLineEdit")
    expect(http("POST", session_url(calc, "element", display, "clear"), {}), "invalid element state")
    assert calc.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit").text == "0"


def test_script_timeout(calc):
    calc.set_script_timeout(1)
    try:
        started = time.monotonic()
        expect(http("POST", session_url(calc, "execute", "async"), {"script": "var done = arguments[0];", "args": []}),
               "script timeout")
        assert time.monotonic() - started < 30
    finally:
        calc.set_script_timeout(30)
    still_answers(calc)


def test_timeout_while_the_application_is_busy(kwdriver):
    # A script keeps the application busy for longer than kwdriver waits for
    # an answer to another command of the same session (a minute).
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator"))
    try:
        d.set_script_timeout(200)
        busy = threading.Thread(target=http, args=("POST", session_url(d, "execute", "sync"), {
            "script": "var t = new Date().getTime(); while (new Date().getTime() - t < 75000) {} return 1;",
            "args": []}), kwargs={"timeout": 200})
        busy.start()
        time.sleep(2)
        expect(http("GET", session_url(d, "title"), timeout=150), "timeout")
        busy.join()
        assert d.title == "Calculator"
    finally:
        d.quit()


def test_invalid_session_id(kwdriver):
    expect(http("GET", kwdriver.url + "/session/no-such-session/title"), "invalid session id")
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator"))
    url = session_url(d, "title")
    d.quit()
    expect(http("GET", url), "invalid session id")
    expect(http("DELETE", url.rsplit("/", 1)[0]), "invalid session id")


def new_session_body(**always):
    return {"capabilities": {"alwaysMatch": always, "firstMatch": [{}]}}


@pytest.mark.parametrize("capabilities, error", [
    ({"platformName": "windows", "kw:app": app_path("no-such-program")}, "session not created"),
    ({"platformName": "windows", "kw:app": "C:\\no\\such\\program.exe"}, "session not created"),
    ({"platformName": "linux", "kw:app": app_path("calculator")}, "session not created"),
    ({"platformName": "windows", "browserName": "chrome", "kw:app": app_path("calculator")}, "session not created"),
    ({"platformName": "windows"}, "session not created"),                       # no application
    ({"platformName": "windows", "kw:attach": "no-such-image.exe"}, "session not created"),
    ({"platformName": "windows", "kw:app": 42}, "invalid argument"),
    ({"platformName": "windows", "kw:app": app_path("calculator"), "kw:args": "not a list"}, "invalid argument"),
    ({"platformName": "windows", "kw:app": app_path("calculator"), "timeouts": {"implicit": "x"}}, "invalid argument"),
])
def test_new_session_errors(kwdriver, capabilities, error):
    expect(http("POST", kwdriver.url + "/session", new_session_body(**capabilities)), error)


def test_new_session_without_capabilities(kwdriver):
    expect(http("POST", kwdriver.url + "/session", {}), "invalid argument")
    expect(http("POST", kwdriver.url + "/session", {"capabilities": []}), "invalid argument")


def test_too_many_sessions(request):
    # A driver that takes two sessions at once refuses a third.
    small = start_driver(request, "errors_max2", ["--max-sessions", "2"])
    made = []
    try:
        for _ in range(2):
            made.append(webdriver.Remote(command_executor=small.url, options=options("calculator")))
        answer = http("POST", small.url + "/session",
                      new_session_body(platformName="windows", **{"kw:app": app_path("calculator")}))
        if answer[0] == 200:                         # made after all: end it too
            http("DELETE", small.url + "/session/" + answer[1]["value"]["sessionId"])
        expect(answer, "session not created", r"--max-sessions 2|2")
        made.pop().quit()                            # one slot free again: taken
        made.append(webdriver.Remote(command_executor=small.url, options=options("calculator")))
    finally:
        for d in made:
            d.quit()


# --- errors that need some state of the application ---------------------------

def test_element_not_interactable(new_session):
    d = new_session("configdialog")
    hidden = element_id(d, 'QPushButton[text="Start update"]')     # on a page not shown
    expect(http("POST", session_url(d, "element", hidden, "click"), {}), "element not interactable")
    expect(http("POST", session_url(d, "element", hidden, "value"), {"text": "x"}), "element not interactable")


def test_stale_element_reference(new_session):
    d = new_session("addressbook")
    d.find_element(By.CSS_SELECTOR, 'QPushButton[text="Add"]').click()
    name = WebDriverWait(d, 10).until(EC.visibility_of_element_located((By.CSS_SELECTOR, "QDialog QLineEdit"))).id
    d.find_element(By.CSS_SELECTOR, 'QDialog QPushButton[text="Cancel"]').click()
    WebDriverWait(d, 10).until(EC.invisibility_of_element_located((By.CSS_SELECTOR, "QDialog:visible")))
    for method, tail, body in [("GET", ("text",), None), ("POST", ("click",), {}),
                               ("POST", ("value",), {"text": "x"}), ("GET", ("attribute", "text"), None),
                               ("POST", ("element",), {"using": "css selector", "value": "QLabel"})]:
        expect(http(method, session_url(d, "element", name, *tail), body), "stale element reference")


def test_unexpected_alert_open(new_session):
    d = new_session("standarddialogs")
    d.find_element(By.LINK_TEXT, "QInputDialog::getText()").click()
    WebDriverWait(d, 10).until(EC.alert_is_present())
    expect(http("POST", session_url(d, "element"), {"using": "css selector", "value": "QPushButton"}),
           "unexpected alert open")
    # Dismissed on the way (the default, "dismiss and notify"): no alert now.
    expect(http("GET", session_url(d, "alert", "text")), "no such alert")
