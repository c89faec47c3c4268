"""Qt's config dialog example: a click on an item of its icon list shows
that item's page in the stacked widget beside it."""

import pytest
from selenium.common.exceptions import ElementNotInteractableException
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

# list item, page index, a group box only that page holds
PAGES = [
    ("Update", 1, "Package selection"),
    ("Query", 2, "Look for packages"),
    ("Configuration", 0, "Server configuration"),
]


@pytest.fixture
def config(new_session):
    return new_session("configdialog")


# The icon list of pages is the dialog's own child (the Update page has a
# list of packages too).
PAGE_LIST = "//ConfigDialog/QListWidget"


def list_item(d, text):
    return d.find_element(By.XPATH, f'{PAGE_LIST}//Item[@text="{text}"]')


def group(d, title):
    return d.find_element(By.CSS_SELECTOR, f'QGroupBox[title="{title}"]')


def current_page(d):
    return d.find_element(By.CSS_SELECTOR, "QStackedWidget").get_attribute("currentIndex")


def test_items_are_listed(config):
    items = config.find_elements(By.XPATH, f"{PAGE_LIST}//Item")
    assert [i.text for i in items] == ["Configuration", "Update", "Query"]
    assert [i.get_attribute("row") for i in items] == ["0", "1", "2"]
    assert current_page(config) == "0"


@pytest.mark.parametrize("start", [None, "Query"])
@pytest.mark.parametrize("item, index, title", PAGES)
def test_click_shows_the_page(config, start, item, index, title):
    if start:
        list_item(config, start).click()
    list_item(config, item).click()
    WebDriverWait(config, 5).until(lambda d: current_page(d) == str(index))
    assert list_item(config, item).get_attribute("selected") == "true"
    for _, _, other in PAGES:
        assert group(config, other).is_displayed() == (other == title)


def test_hidden_page_is_not_interactable(config):
    # The Update page's button is there but not shown until its page is.
    hidden = config.find_element(By.CSS_SELECTOR, 'QPushButton[text="Start update"]')
    assert not hidden.is_displayed()
    with pytest.raises(ElementNotInteractableException):
        hidden.click()
    list_item(config, "Update").click()
    WebDriverWait(config, 5).until(lambda d: hidden.is_displayed())
    hidden.click()                                   # now it takes the click


def test_an_item_in_a_script_is_its_view_row_column_and_text(config):
    item = list_item(config, "Query")
    seen = config.execute_script(
        "var i = arguments[0]; i.view.setCurrentRow(i.row);"
        " return [i.row, i.column, i.text, i.selected, i.view.currentRow(), i.view];", item)
    assert seen[:5] == [2, 0, "Query", False, 2]
    assert seen[5] == config.find_element(By.XPATH, PAGE_LIST)   # the view comes back as its element
    WebDriverWait(config, 5).until(lambda d: current_page(d) == "2")
