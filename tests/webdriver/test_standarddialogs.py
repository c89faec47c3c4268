"""Qt's standard dialogs example: its modal input dialogs are WebDriver's
user prompts. Opened by their buttons, read, filled in and answered through
switch_to.alert; the label beside each button then shows what was entered."""

import pytest
from selenium.common.exceptions import NoAlertPresentException, UnexpectedAlertPresentException
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
    return new_session("standarddialogs")


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


def test_message_box_is_an_alert(dialogs):
    alert = open_prompt(dialogs, "QMessageBox::information()")
    assert "Message boxes have a caption, a text" in alert.text
    alert.accept()
    with pytest.raises(NoAlertPresentException):
        dialogs.switch_to.alert.text
    assert len(label_showing(dialogs, "OK")) == 1   # information() answers OK


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
