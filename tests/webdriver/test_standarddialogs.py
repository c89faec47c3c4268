"""Qt's standard dialogs example: its modal input dialogs are WebDriver's
user prompts. Opened by their buttons, read, filled in and answered through
switch_to.alert; the label beside each button then shows what was entered."""

import pytest
from selenium.common.exceptions import (ElementNotInteractableException, NoAlertPresentException,
                                        UnexpectedAlertPresentException)
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait


def button(d, text):
    # By what the button shows: its text without the "&" of its shortcut.
    return d.find_element(By.LINK_TEXT, text)


def label_showing(d, text):
    return d.find_elements(By.XPATH, f'//QLabel[@text="{text}"]')


def open_prompt(d, button_text):
    button(d, button_text).click()
    return WebDriverWait(d, 10).until(EC.alert_is_present())


@pytest.fixture
def dialogs(new_session):
    d = new_session("standarddialogs")
    # Its lower buttons lie past the bottom of the screen where it opens.
    d.set_window_position(0, 0)
    return d


# button, the prompt's text, what is typed, what the label shows afterwards
PROMPTS = [
    ("QInputDialog::getInt()", "Percentage:", "42", "42%"),
    ("QInputDialog::getText()", "User name:", "Ada Lovelace", "Ada Lovelace"),
]


@pytest.mark.parametrize("button_text, prompt, typed, shown", PROMPTS)
def test_prompt_accepted(dialogs, button_text, prompt, typed, shown):
    assert label_showing(dialogs, shown) == []
    alert = open_prompt(dialogs, button_text)
    assert alert.text == prompt
    alert.send_keys(typed)
    alert.accept()
    assert len(label_showing(dialogs, shown)) == 1
    with pytest.raises(NoAlertPresentException):
        dialogs.switch_to.alert.text


@pytest.mark.parametrize("button_text, prompt, typed, shown", PROMPTS)
def test_prompt_dismissed(dialogs, button_text, prompt, typed, shown):
    alert = open_prompt(dialogs, button_text)
    alert.send_keys(typed)
    alert.dismiss()
    with pytest.raises(NoAlertPresentException):
        dialogs.switch_to.alert.text
    assert label_showing(dialogs, shown) == []
    # The application goes on: the next prompt opens and is answered.
    alert = open_prompt(dialogs, button_text)
    alert.send_keys(typed)
    alert.accept()
    assert len(label_showing(dialogs, shown)) == 1


# button, how the message box is answered, the button that answer presses
MESSAGE_BOXES = [
    ("QMessageBox::information()", "accept", "OK"),
    ("QMessageBox::question()", "accept", "Yes"),
    ("QMessageBox::question()", "dismiss", "Cancel"),     # Yes, No, Cancel: Escape's is Cancel
    ("QMessageBox::warning()", "accept", "Save Again"),   # buttons of its own: "Continue" rejects
]


@pytest.mark.parametrize("button_text, answer, pressed", MESSAGE_BOXES)
def test_message_box_is_an_alert(dialogs, button_text, answer, pressed):
    alert = open_prompt(dialogs, button_text)
    assert "Message boxes" in alert.text
    with pytest.raises(ElementNotInteractableException):
        alert.send_keys("x")                          # it has no field to type into
    getattr(alert, answer)()
    with pytest.raises(NoAlertPresentException):
        dialogs.switch_to.alert.text
    assert len(label_showing(dialogs, pressed)) == 1  # the example's label names the answer


def test_other_commands_meet_the_open_prompt(dialogs):
    open_prompt(dialogs, "QInputDialog::getText()")
    with pytest.raises(UnexpectedAlertPresentException):
        dialogs.find_element(By.CSS_SELECTOR, "QPushButton")
    # By default the prompt is dismissed on the way: the application answers again.
    try:
        dialogs.switch_to.alert.dismiss()
    except NoAlertPresentException:
        pass
    assert button(dialogs, "QInputDialog::getText()").is_displayed()


# unhandledPromptBehavior: whether a command goes on past an open prompt, and
# what became of the prompt ("accepted", "dismissed" or still "open")
BEHAVIORS = [
    ("accept", True, "accepted"),
    ("dismiss", True, "dismissed"),
    ("accept and notify", False, "accepted"),
    ("ignore", False, "open"),
]


@pytest.mark.parametrize("behavior, goes_on, prompt", BEHAVIORS)
def test_unhandled_prompt_behavior(new_session, behavior, goes_on, prompt):
    d = new_session("standarddialogs", unhandledPromptBehavior=behavior)
    d.set_window_position(0, 0)
    assert d.capabilities["unhandledPromptBehavior"] == behavior
    open_prompt(d, "QInputDialog::getText()").send_keys("Grace Hopper")
    if goes_on:
        assert d.find_element(By.CSS_SELECTOR, "QPushButton").tag_name == "QPushButton"
    else:
        with pytest.raises(UnexpectedAlertPresentException):
            d.find_element(By.CSS_SELECTOR, "QPushButton")
    if prompt == "open":
        assert d.switch_to.alert.text == "User name:"
        d.switch_to.alert.dismiss()
    with pytest.raises(NoAlertPresentException):
        d.switch_to.alert.text
    assert len(label_showing(d, "Grace Hopper")) == (1 if prompt == "accepted" else 0)
