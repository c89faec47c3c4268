"""Qt's application example (a text editor main window): its menus' entries
found by link text, one of them chosen, and the "save changes?" message box
it raises answered as an alert."""

import pytest
from selenium.common.exceptions import NoAlertPresentException
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait

MENUS = {
    "File": ["New", "Open...", "Save", "Save As...", "Exit"],
    "Edit": ["Cut", "Copy", "Paste"],
    "Help": ["About", "About Qt"],
}


@pytest.fixture
def editor(new_session):
    return new_session("application")


def open_menu(d, title):
    entry(d, title).click()
    return WebDriverWait(d, 10).until(EC.visibility_of_element_located((By.CSS_SELECTOR, "QMenu:visible")))


def entry(d, text):
    """The menu entry (a QAction) that reads text; a tool button may read the same."""
    # (The tool bars' own entries in the window's menu, "File" and "Edit", can be checked.)
    found = [e for e in d.find_elements(By.LINK_TEXT, text)
             if e.tag_name == "QAction" and e.get_attribute("checkable") == "false"]
    assert len(found) == 1, f"{len(found)} menu entries read {text!r}"
    return found[0]


@pytest.mark.parametrize("title", MENUS)
def test_menu_entries_by_link_text(editor, title):
    open_menu(editor, title)
    for text in MENUS[title]:
        found = entry(editor, text)
        assert found.is_displayed()
        assert found.text == text
        assert (found.aria_role, found.accessible_name) == ("menuitem", text)
    # Close it with Escape: no menu is shown any more.
    ActionChains(editor).send_keys(Keys.ESCAPE).perform()
    WebDriverWait(editor, 10).until(EC.invisibility_of_element_located((By.CSS_SELECTOR, "QMenu:visible")))


def test_partial_link_text_finds_both_save_entries(editor):
    open_menu(editor, "File")
    found = editor.find_elements(By.PARTIAL_LINK_TEXT, "Save")
    assert sorted(e.text for e in found if e.tag_name == "QAction") == ["Save", "Save As..."]
    # The tool bars' own entries can be checked.
    toggles = [e for e in editor.find_elements(By.LINK_TEXT, "File") if e.get_attribute("checkable") == "true"]
    assert toggles and all(e.aria_role == "menuitemcheckbox" for e in toggles)
    ActionChains(editor).send_keys(Keys.ESCAPE).perform()


def test_file_new_asks_before_dropping_changes(editor):
    text = editor.find_element(By.CSS_SELECTOR, "QPlainTextEdit")
    text.send_keys("Unsaved words")
    assert text.text == "Unsaved words"
    open_menu(editor, "File")
    entry(editor, "New").click()
    alert = WebDriverWait(editor, 10).until(EC.alert_is_present())
    assert "The document has been modified." in alert.text
    alert.dismiss()                                  # Cancel: the text stays
    with pytest.raises(NoAlertPresentException):
        editor.switch_to.alert.text
    assert editor.find_element(By.CSS_SELECTOR, "QPlainTextEdit").text == "Unsaved words"


def test_edit_menu_pastes_what_was_copied(editor):
    text = editor.find_element(By.CSS_SELECTOR, "QPlainTextEdit")
    text.send_keys("copy me", Keys.CONTROL, "a", Keys.NULL)
    open_menu(editor, "Edit")
    entry(editor, "Copy").click()
    text.send_keys(Keys.END, " and ")
    open_menu(editor, "Edit")
    entry(editor, "Paste").click()
    assert text.text == "copy me and copy me"


@pytest.mark.parametrize("ending, after", [
    ("release", "beta gammaalpha "),                 # dropped at the line's end: moved there
    ("escape", "alpha beta gamma"),                  # cancelled: nothing moves
])
def test_selected_text_dragged_to_the_line_end(editor, ending, after):
    """Qt's text drag and drop (the system's drag loop) carried by pointer actions."""
    text = editor.find_element(By.CSS_SELECTOR, "QPlainTextEdit")
    text.send_keys("alpha beta gamma", Keys.HOME, Keys.SHIFT, *[Keys.ARROW_RIGHT] * 6, Keys.NULL)
    assert editor.execute_script("return arguments[0].textCursor().selectedText()", text) == "alpha "
    width, height = text.rect["width"], text.rect["height"]
    line = -height // 2 + 12                          # the first line, from the centre
    chain = (ActionChains(editor)
             .move_to_element_with_offset(text, -width // 2 + 12, line).click_and_hold()
             .move_to_element_with_offset(text, width // 2 - 30, line))
    if ending == "escape":
        chain.send_keys(Keys.ESCAPE)
    chain.release().perform()
    assert text.text == after
