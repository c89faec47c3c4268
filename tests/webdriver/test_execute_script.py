"""execute_script and execute_async_script: JScript run inside the
application, with kwscript's app object, Qt members by their plain names
and element arguments arriving as the widgets themselves."""

import time

import pytest
from selenium.common.exceptions import JavascriptException, TimeoutException
from selenium.webdriver.common.by import By
from selenium.webdriver.remote.webelement import WebElement


@pytest.fixture
def calc(new_session):
    return new_session("calculator")


def display(d):
    return d.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit")


@pytest.mark.parametrize("script, args, result", [
    ("return 1 + 2;", [], 3),
    ("return 0.5 * 3;", [], 1.5),
    ('return "a" + "b";', [], "ab"),
    ("return true;", [], True),
    ("return null;", [], None),
    ("return;", [], None),
    ("return arguments.length;", [1, 2, 3], 3),
    ("return arguments[0] + arguments[1];", [40, 2], 42),
    ("return arguments[0] + arguments[1];", ["4", "2"], "42"),
    ("return [1, 'x', false];", [], [1, "x", False]),
    ("return arguments[0];", [[1, [2, 3]]], [1, [2, 3]]),
    ('return {"n": 7, "s": "t"};', [], {"n": 7, "s": "t"}),
    ('return "caf\\u00e9 \\u20ac";', [], "caf\u00e9 \u20ac"),
])
def test_values_cross_both_ways(calc, script, args, result):
    assert calc.execute_script(script, *args) == result


def test_element_argument_is_the_widget(calc):
    shown = display(calc)
    assert calc.execute_script("return arguments[0].text;", shown) == "0"
    calc.execute_script('arguments[0].setText("123");', shown)
    assert shown.get_attribute("text") == "123"     # read back through WebDriver
    seven = calc.find_element(By.CSS_SELECTOR, 'Button[text="7"]')
    assert calc.execute_script("return arguments[0].text + arguments[1].text;", seven, shown) == "7123"


def test_widget_result_is_an_element(calc):
    found = calc.execute_script('return app.query("Calculator > QLineEdit");')
    assert isinstance(found, WebElement)
    assert found == display(calc)                    # the same reference as a find gives
    assert found.tag_name == "QLineEdit"
    buttons = calc.execute_script('var l = app.queryAll("Button"); return [l.item(0), l.item(26)];')
    assert len(buttons) == 2 and all(isinstance(b, WebElement) for b in buttons)
    assert all(b.tag_name == "Button" for b in buttons)


def test_app_click_from_a_script(calc):
    calc.execute_script("app.click(arguments[0]); app.click(arguments[1]);",
                        calc.find_element(By.CSS_SELECTOR, 'Button[text="4"]'),
                        calc.find_element(By.CSS_SELECTOR, 'Button[text="2"]'))
    assert display(calc).text == "42"


@pytest.mark.parametrize("script", [
    'throw new Error("boom");',
    "return nosuchvariable.member;",
    "return (1 + ;",
    "return arguments[0].noSuchMember();",
])
def test_script_errors(calc, script):
    with pytest.raises(JavascriptException):
        calc.execute_script(script, display(calc))
    assert display(calc).text == "0"                 # and the session goes on


def test_error_message_is_the_scripts(calc):
    with pytest.raises(JavascriptException, match="boom 42"):
        calc.execute_script('throw new Error("boom " + 42);')


def test_later_javascript_is_answered_with_what_to_write(calc):
    with pytest.raises(JavascriptException, match="write function"):
        calc.execute_script("var twice = (x) => x * 2; return twice(21);")
    assert calc.execute_script("var twice = function (x) { return x * 2; }; return twice(21);") == 42


def test_async_script_answers_by_callback(calc):
    assert calc.execute_async_script("arguments[arguments.length - 1](arguments[0] * 2);", 21) == 42
    shown = display(calc)
    assert calc.execute_async_script("var done = arguments[1]; done(arguments[0].text);", shown) == "0"


def test_async_script_that_never_answers_times_out(calc):
    calc.set_script_timeout(1)
    with pytest.raises(TimeoutException):
        calc.execute_async_script("var done = arguments[0];")
    calc.set_script_timeout(30)
    assert calc.execute_script("return 5;") == 5


@pytest.mark.parametrize("loop", [
    "for (;;) {}",
    "var n = 0; while (true) { n = (n + 1) % 7; }",
    "var a = []; for (;;) { a.push('x' + a.length); if (a.length > 500) a = []; }",
    "function spin(depth) { if (depth > 0) return spin(depth - 1); for (;;) {} } spin(20);",
    # Calls that fail once the stop is asked, their errors swallowed.
    "for (;;) { try { app.query('QLineEdit'); } catch (e) {} }",
    # A wait on the clock, read now and then (read on every turn, the loop
    # runs mostly in the system's calls, where it is caught only by chance).
    "var end = new Date().getTime() + 60000, n = 0; while (++n % 1000 != 0 || new Date().getTime() < end) {}",
])
def test_loop_that_makes_no_call_is_cut_off(calc, loop):
    calc.execute_script("kept = 'from before';")
    assert calc.execute_script("return typeof kept;") == "string"
    calc.set_script_timeout(1)
    started = time.monotonic()
    with pytest.raises(TimeoutException, match="cut off"):
        calc.execute_script(loop)
    assert time.monotonic() - started < 30
    calc.set_script_timeout(30)
    # The application runs on, and the session's scripts start afresh.
    calc.find_element(By.CSS_SELECTOR, 'Button[text="7"]').click()
    assert display(calc).text == "7"
    assert calc.execute_script("return typeof kept;") == "undefined"
    assert calc.execute_script("return arguments[0].text;", display(calc)) == "7"
