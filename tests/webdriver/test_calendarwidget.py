"""Qt's calendar widget example by actions: a day clicked in the calendar,
a drag from one day to another, arrow keys, the wheel and a double click on
its next-month button, each read back from the example's "Current Date"
edit, which follows the calendar's selection, or from its month shown.
And its widgets' computed roles and labels, many of them named by the
labels whose buddies they are."""

import datetime

import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait


@pytest.fixture
def calendar(new_session):
    return new_session("calendarwidget")


def day(d, number):
    # Days 10 to 20 appear once in a month's grid; the other numbers may
    # show twice, for the weeks of the months around it. Row 0 holds the
    # days' names, column 0 the week numbers.
    return d.find_element(By.XPATH, f'//QCalendarWidget//Item[@text="{number}" and @row!="0" and @column!="0"]')


def shown_month(d):
    """The calendar's month and year as its navigation bar shows them: (month, year)."""
    month = d.find_element(By.CSS_SELECTOR, "QCalendarWidget QToolButton#qt_calendar_monthbutton").text
    year = d.find_element(By.CSS_SELECTOR, "QCalendarWidget QToolButton#qt_calendar_yearbutton").text
    return datetime.datetime.strptime(f"{month} {year}", "%B %Y")


def current_date_text(d):
    # The Dates group's edits, from the top: minimum, current, maximum date
    # ("MMM d yyyy"); the middle one follows the calendar.
    edits = d.find_elements(By.CSS_SELECTOR, 'QGroupBox[title="Dates"] QDateEdit')
    assert len(edits) == 3
    return sorted(edits, key=lambda e: e.rect["y"])[1].get_attribute("text")


def expected(d, number):
    month = shown_month(d)
    return month.replace(day=number).strftime("%b ") + f"{number} {month.year}"


@pytest.mark.parametrize("number", [12, 17])
def test_click_on_a_day(calendar, number):
    want = expected(calendar, number)
    ActionChains(calendar).click(day(calendar, number)).perform()
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == want)
    assert day(calendar, number).get_attribute("selected") == "true"


def test_click_at_an_offset_from_a_day(calendar):
    # From the centre of 14 one cell to the right is 15, unless 14 ends a week row.
    fourteen, fifteen = day(calendar, 14), day(calendar, 15)
    if fifteen.rect["y"] != fourteen.rect["y"]:
        fourteen, fifteen = day(calendar, 15), day(calendar, 16)
    target = int(fifteen.text)
    step = fifteen.rect["x"] - fourteen.rect["x"]
    ActionChains(calendar).move_to_element_with_offset(fourteen, step, 0).click().perform()
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == expected(d, target))


def test_drag_from_one_day_to_another(calendar):
    want = expected(calendar, 18)
    ActionChains(calendar).drag_and_drop(day(calendar, 11), day(calendar, 18)).perform()
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == want)


def test_release_actions_lets_the_held_button_go(calendar):
    chain = ActionChains(calendar)
    chain.click_and_hold(day(calendar, 13)).move_to_element(day(calendar, 19)).perform()
    chain.reset_actions()                            # releaseActions: the button comes up over 19
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == expected(d, 19))
    # A plain click works afterwards: nothing is held any more.
    ActionChains(calendar).click(day(calendar, 16)).perform()
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == expected(d, 16))


def months_on(d, since):
    now = shown_month(d)
    return (now.year - since.year) * 12 + now.month - since.month


def test_keys_wheel_and_double_click(calendar):
    ActionChains(calendar).click(day(calendar, 12)).send_keys(Keys.ARROW_RIGHT).perform()
    WebDriverWait(calendar, 5).until(lambda d: current_date_text(d) == expected(d, 13))
    start = shown_month(calendar)
    ActionChains(calendar).scroll_from_origin(ScrollOrigin.from_element(day(calendar, 15)), 0, 100).perform()
    WebDriverWait(calendar, 5).until(lambda d: months_on(d, start) == 1)   # the wheel turned down: a month on
    next_month = calendar.find_element(By.CSS_SELECTOR, "QCalendarWidget QToolButton#qt_calendar_nextmonth")
    ActionChains(calendar).double_click(next_month).perform()
    WebDriverWait(calendar, 5).until(lambda d: months_on(d, start) == 3)   # two clicks: two months more


@pytest.mark.parametrize("using, value, role, label", [
    (By.CSS_SELECTOR, "QComboBox", "combobox", "Locale"),                  # by its buddy, "&Locale"
    (By.CSS_SELECTOR, 'QGroupBox[title="Dates"] QDateEdit', "spinbutton", "Current Date:"),
    (By.XPATH, '//QCheckBox[@text="Grid"]', "checkbox", "Grid"),
    (By.CSS_SELECTOR, 'QGroupBox[title="Dates"]', "group", "Dates"),
    (By.CSS_SELECTOR, "QCalendarWidget QTableView", "grid", ""),
    (By.CSS_SELECTOR, "QCalendarWidget QToolButton#qt_calendar_prevmonth", "button", ""),
    (By.XPATH, '//QCalendarWidget//Item[@text="15"]', "gridcell", "15"),
])
def test_computed_role_and_label(calendar, using, value, role, label):
    element = calendar.find_element(using, value)
    assert (element.aria_role, element.accessible_name) == (role, label)


def test_accessible_name_set_by_the_application_comes_first(calendar):
    edit = calendar.find_element(By.CSS_SELECTOR, 'QGroupBox[title="Dates"] QDateEdit')
    calendar.execute_script('arguments[0].accessibleName = "First day allowed";', edit)
    assert edit.accessible_name == "First day allowed"
