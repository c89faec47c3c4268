"""Qt's address book example: contacts added through its modal "Add a
Contact" dialog, then found as items of its table, double-clicked and read.
Also: an element of a dialog that has closed is stale."""

import pytest
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as EC
from selenium.webdriver.support.ui import WebDriverWait

CONTACTS = [("Ada Lovelace", "1 Main Street"), ("Alan Turing", "2 Bletchley Park")]


def wait_for(d, css):
    return WebDriverWait(d, 10).until(EC.visibility_of_element_located((By.CSS_SELECTOR, css)))


def fill_in_add_dialog(d, name, address):
    wait_for(d, "QDialog QLineEdit").send_keys(name)
    d.find_element(By.CSS_SELECTOR, "QDialog QTextEdit").send_keys(address)
    d.find_element(By.CSS_SELECTOR, 'QDialog QPushButton[text="OK"]').click()
    WebDriverWait(d, 10).until(EC.invisibility_of_element_located((By.CSS_SELECTOR, "QDialog:visible")))


def item(d, text):
    return d.find_element(By.XPATH, f'//QTableView//Item[@text="{text}"]')


@pytest.fixture
def book(new_session):
    d = new_session("addressbook")
    # The first contact by the empty book's own Add button, the second by Tools/Add Entry...
    d.find_element(By.CSS_SELECTOR, 'QPushButton[text="Add"]').click()
    fill_in_add_dialog(d, *CONTACTS[0])
    d.find_element(By.LINK_TEXT, "Tools").click()
    d.find_element(By.LINK_TEXT, "Add Entry...").click()
    fill_in_add_dialog(d, *CONTACTS[1])
    return d


def test_items_hold_the_contacts(book):
    for row, (name, address) in enumerate(CONTACTS):
        for column, text in enumerate((name, address)):
            cell = item(book, text)
            assert cell.tag_name == "Item"
            assert cell.text == text
            assert (cell.get_attribute("row"), cell.get_attribute("column")) == (str(row), str(column))
            assert cell.is_displayed()
    items = book.find_elements(By.XPATH, "//QTableView//Item[@row='1']")
    assert [i.text for i in items] == list(CONTACTS[1])


@pytest.mark.parametrize("picked", [0, 1])
def test_double_click_selects_the_row(book, picked):
    from selenium.webdriver.common.action_chains import ActionChains
    ActionChains(book).double_click(item(book, CONTACTS[picked][0])).perform()
    for row, (name, address) in enumerate(CONTACTS):
        want = "true" if row == picked else "false"
        assert item(book, name).get_attribute("selected") == want
        assert item(book, address).get_attribute("selected") == want


def test_one_table_per_tab_and_only_its_own_rows(book):
    # Nine tabs (ABC ... XYZ), one table each; both names start with A.
    assert len(book.find_elements(By.CSS_SELECTOR, "QTableView")) == 9
    assert len(book.find_elements(By.CSS_SELECTOR, "QTableView:visible")) == 1
    assert len(book.find_elements(By.XPATH, '//QTableView//Item[@text="Ada Lovelace"]')) == 1
    shown = book.find_element(By.CSS_SELECTOR, "QTableView:visible")
    assert [i.text for i in shown.find_elements(By.XPATH, ".//Item[@column='0']")] == [c[0] for c in CONTACTS]


def test_element_of_a_closed_dialog_is_stale(new_session):
    d = new_session("addressbook")
    d.find_element(By.CSS_SELECTOR, 'QPushButton[text="Add"]').click()
    name = wait_for(d, "QDialog QLineEdit")
    name.send_keys("Grace")
    assert name.get_attribute("text") == "Grace"
    d.find_element(By.CSS_SELECTOR, 'QDialog QPushButton[text="Cancel"]').click()
    WebDriverWait(d, 10).until(EC.invisibility_of_element_located((By.CSS_SELECTOR, "QDialog:visible")))
    for use in (lambda: name.send_keys("x"), lambda: name.text, lambda: name.get_attribute("text"), name.click):
        with pytest.raises(StaleElementReferenceException):
            use()
    # The book is still empty: the dialog's name went nowhere.
    assert d.find_elements(By.XPATH, '//Item[@text="Grace"]') == []
