"""Qt's calculator example through WebDriver: its 27 buttons have texts but
no object names, so they are found by what a user reads on them."""

import pytest
from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.remote.command import Command
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait

from conftest import ELEMENT_KEY, http, options, session_url

# How one button is found, by strategy.
BUTTON = {
    "css": lambda text: (By.CSS_SELECTOR, f'Button[text="{text}"]'),
    "xpath": lambda text: (By.XPATH, f'//Button[@text="{text}"]'),
    "link text": lambda text: (By.LINK_TEXT, text),
}


def display(d):
    return d.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit")


@pytest.mark.parametrize("strategy", BUTTON)
@pytest.mark.parametrize("presses, shown", [
    (["7", "+", "8", "="], "15"),
    (["1", "2", "\u00d7", "7", "="], "84"),
    (["9", "-", "4", "0", "="], "-31"),
])
def test_arithmetic_by_clicks(new_session, strategy, presses, shown):
    d = new_session("calculator")
    assert display(d).text == "0"
    for text in presses:
        d.find_element(*BUTTON[strategy](text)).click()
    # The display read twice: the element's text, and the text property
    # through an XPath over the page source.
    assert display(d).text == shown
    assert d.find_element(By.XPATH, "//Calculator/QLineEdit").get_attribute("text") == shown


@pytest.fixture(scope="module")
def calc(kwdriver):
    d = webdriver.Remote(command_executor=kwdriver.url, options=options("calculator"))
    yield d
    d.quit()


def find_all(d, using, value):
    """find_elements with the strategy as sent (Selenium's client rewrites id, name and class name to css)."""
    return d.execute(Command.FIND_ELEMENTS, {"using": using, "value": value})["value"]


@pytest.mark.parametrize("using, value, count", [
    ("css selector", "Button", 27),
    ("css selector", 'Button[text="7"]', 1),
    ("css selector", "QToolButton", 27),             # a type matches its subclasses
    ("css selector", ".QAbstractButton", 27),
    ("css selector", "Calculator > QLineEdit", 1),
    ("css selector", "QLineEdit:visible", 1),
    ("css selector", 'Button[text="Clear"]', 1),
    ("css selector", '[name="Backspace"]', 1),
    ("css selector", "QPushButton", 0),
    ("xpath", "//Button", 27),
    ("xpath", '//Button[@text="Clear All"]', 1),
    ("xpath", '//*[@text="7" or @text="8"]', 2),
    ("xpath", "//QLineEdit[@visible='true']", 1),
    ("tag name", "QLineEdit", 1),
    ("tag name", "Button", 27),
    ("class name", "Button", 27),
    ("name", "Backspace", 1),
    ("link text", "Clear", 1),
    ("partial link text", "Clear", 2),
    ("partial link text", "M", 4),                   # MC MR MS M+
    ("id", "nothingHasThisName", 0),
    ("accessibility id", "nothingHasThisName", 0),
])
def test_locator_strategies(calc, using, value, count):
    assert len(find_all(calc, using, value)) == count


def test_element_facts(calc):
    seven = calc.find_element(By.CSS_SELECTOR, 'Button[text="7"]')
    assert seven.tag_name == "Button"
    assert seven.text == "7"
    assert seven.is_displayed() and seven.is_enabled()
    rect = seven.rect
    assert rect["width"] > 0 and rect["height"] > 0
    eight = calc.find_element(By.CSS_SELECTOR, 'Button[text="8"]')
    assert eight.rect["x"] > rect["x"]                # 8 is right of 7
    # One widget, one reference, however it was found.
    assert calc.find_element(By.XPATH, '//Button[@text="7"]') == seven
    assert display(calc).tag_name == "QLineEdit"
    assert display(calc).get_attribute("readOnly") == "true"
    assert calc.title == "Calculator"


def test_stock_client_helpers_that_send_browser_functions(calc):
    seven = calc.find_element(By.CSS_SELECTOR, 'Button[text="7"]')
    # Selenium's scroll into view answers the place on the screen.
    assert seven.location_once_scrolled_into_view == seven.location
    # A field's value is its text, also for the client's waits.
    seven.click()
    assert display(calc).get_attribute("value") == display(calc).get_property("value") == "7"
    WebDriverWait(calc, 5).until(EC.text_to_be_present_in_element_value((By.CSS_SELECTOR, "QLineEdit"), "7"))
    calc.find_element(By.CSS_SELECTOR, 'Button[text="Clear All"]').click()
    assert display(calc).get_attribute("value") == "0"


def test_find_from_element(calc):
    window = calc.find_element(By.CSS_SELECTOR, "Calculator")
    assert len(window.find_elements(By.CSS_SELECTOR, "Button")) == 27
    assert window.find_element(By.XPATH, './/Button[@text="9"]').text == "9"
    assert window.find_element(By.TAG_NAME, "QLineEdit") == display(calc)


def test_page_source_names_the_widgets(calc):
    source = calc.page_source
    assert source.lstrip().startswith("<")
    assert "<Calculator" in source and "<QLineEdit" in source
    assert source.count("<Button") == 27


def test_element_reference_on_the_wire(calc):
    # WebDriver's web element identifier, the key every client looks for.
    status, body = http("POST", session_url(calc, "element"), {"using": "css selector", "value": 'Button[text="7"]'})
    assert status == 200
    assert list(body["value"]) == [ELEMENT_KEY]
    assert isinstance(body["value"][ELEMENT_KEY], str) and body["value"][ELEMENT_KEY]
