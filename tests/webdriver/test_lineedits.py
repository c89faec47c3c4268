"""Typing with WebDriver's keys into Qt's line edits example: what the line
edit holds afterwards is read back from the widget."""

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.common.action_chains import ActionChains

ECHO_EDIT = 'QGroupBox[title="Echo"] QLineEdit'

# keys sent in one element send keys, what the line edit holds afterwards
TYPING = [
    (["hello"], "hello"),
    (["hello", Keys.BACKSPACE], "hell"),
    (["hello", Keys.BACKSPACE * 3], "he"),
    (["hello", Keys.HOME, "X"], "Xhello"),
    (["hello", Keys.HOME, Keys.DELETE], "ello"),
    (["hello", Keys.LEFT, Keys.LEFT, "-"], "hel-lo"),
    (["hello", Keys.HOME, Keys.END, "!"], "hello!"),
    (["hello", Keys.SHIFT, Keys.HOME, Keys.NULL, "bye"], "bye"),    # a held modifier selects
    (["hello", Keys.CONTROL, "a", Keys.NULL, "z"], "z"),
    (["hello world", Keys.CONTROL, Keys.LEFT, Keys.NULL, "big "], "hello big world"),
    (["caf\u00e9 \u00fcber \u20ac"], "caf\u00e9 \u00fcber \u20ac"),
]


@pytest.fixture
def lineedits(new_session):
    return new_session("lineedits")


@pytest.mark.parametrize("keys, held", TYPING)
def test_send_keys(lineedits, keys, held):
    edit = lineedits.find_element(By.CSS_SELECTOR, ECHO_EDIT)
    edit.send_keys(*keys)
    assert edit.get_attribute("text") == held
    # Read a second way: the text property through the page source.
    assert lineedits.find_element(By.XPATH, '//QGroupBox[@title="Echo"]//QLineEdit').get_attribute("text") == held


def test_keys_go_on_where_the_cursor_was_left(lineedits):
    edit = lineedits.find_element(By.CSS_SELECTOR, ECHO_EDIT)
    edit.send_keys("abc")
    edit.send_keys(Keys.HOME)
    edit.send_keys("1")
    assert edit.get_attribute("text") == "1abc"


def test_clear(lineedits):
    edit = lineedits.find_element(By.CSS_SELECTOR, ECHO_EDIT)
    edit.send_keys("something")
    edit.clear()
    assert edit.get_attribute("text") == ""
    edit.send_keys("new")
    assert edit.get_attribute("text") == "new"


def test_keys_by_actions_go_to_the_focused_edit(lineedits):
    edit = lineedits.find_element(By.CSS_SELECTOR, ECHO_EDIT)
    edit.click()
    assert lineedits.switch_to.active_element == edit
    ActionChains(lineedits).send_keys("qt").key_down(Keys.SHIFT).send_keys("x").key_up(Keys.SHIFT).perform()
    assert edit.get_attribute("text") == "qtX"
    ActionChains(lineedits).send_keys(Keys.BACKSPACE, Keys.HOME, "4").perform()
    assert edit.get_attribute("text") == "4qt"


def test_each_edit_gets_its_own_keys(lineedits):
    edits = lineedits.find_elements(By.CSS_SELECTOR, "QLineEdit")
    assert len(edits) == 5
    edits[0].send_keys("first")
    edits[1].send_keys("12")
    assert edits[0].get_attribute("text") == "first"
    assert edits[1].get_attribute("text") == "12"
    assert all(e.get_attribute("text") == "" for e in edits[2:])
