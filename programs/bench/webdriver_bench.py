#!/usr/bin/python3
"""The WebDriver server's speed, measured side by side in one run.

    webdriver_bench.py ROOT APPS

ROOT is the checkout (scripts/driver.sh starts the server), APPS the folder
of Qt's example applications. Prints, for the same Python client (Debian's
python3-selenium):
  - find element (css) plus get text: ours on the calculator against
    ChromeDriver on a local page of about 30 elements (Debian's chromium);
  - the same pair against two GET /status round trips on the same
    connection (the server's own cost over bare HTTP), and against two sent
    through the same Selenium client (its own cost per request on both sides);
  - xpath find against css find on the same window;
  - new session to the first answered command against kwscript's --launch
    to its first output;
  - four sessions at once: commands per second against one session.
Medians of interleaved rounds; nothing here passes or fails."""

import http.client
import os
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from selenium import webdriver
from selenium.webdriver.chrome.options import Options as ChromeOptions
from selenium.webdriver.chrome.service import Service as ChromeService
from selenium.webdriver.common.by import By
from selenium.webdriver.common.options import ArgOptions

ROUNDS = 7
PAIRS = 40


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def median_ms(samples):
    return statistics.median(samples) * 1000.0


def timed(function, count):
    start = time.perf_counter()
    for _ in range(count):
        function()
    return (time.perf_counter() - start) / count


def status_pair(port):
    """Two GET /status on one keep-alive connection, timed as one pair."""
    connection = http.client.HTTPConnection("127.0.0.1", port)
    connection.request("GET", "/status")
    connection.getresponse().read()

    def pair():
        for _ in range(2):
            connection.request("GET", "/status")
            connection.getresponse().read()
    return connection, pair


class Driver:
    """scripts/driver.sh on a port of its own, stopped by its process id."""

    def __init__(self, root):
        self.port = free_port()
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            [os.path.join(root, "scripts", "driver.sh"), "--port", str(self.port), "--log-level", "quiet"],
            stdout=self.log, stderr=subprocess.STDOUT, start_new_session=True)
        deadline = time.time() + 300
        while time.time() < deadline:
            try:
                connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=2)
                connection.request("GET", "/status")
                if connection.getresponse().status == 200:
                    return
            except OSError:
                time.sleep(0.3)
        self.stop()
        raise SystemExit("the WebDriver server did not start")

    def session(self, app):
        options = ArgOptions()
        options.set_capability("platformName", "windows")
        options.set_capability("kw:app", app)
        return webdriver.Remote(command_executor=f"http://127.0.0.1:{self.port}", options=options)

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)


PAGE = "<html><body>" + "".join(
    f'<div id="d{i}"><span class="c{i}">item {i}</span></div>' for i in range(15)) + "</body></html>"


def chrome_session():
    page = tempfile.NamedTemporaryFile("w", suffix=".html", delete=False)
    page.write(PAGE)
    page.close()
    options = ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu"):
        options.add_argument(argument)
    driver = webdriver.Chrome(service=ChromeService("/usr/bin/chromedriver"), options=options)
    driver.get("file://" + page.name)
    return driver


def main():
    root, apps = sys.argv[1], sys.argv[2]
    calculator = os.path.join(apps, "calculator.exe")
    chrome = chrome_session()
    server = Driver(root)
    try:
        started = time.perf_counter()
        ours = server.session(calculator)
        ours.find_element(By.CSS_SELECTOR, "QLineEdit")
        new_session = time.perf_counter() - started

        def ours_pair():
            ours.find_element(By.CSS_SELECTOR, 'Button[text="7"]').text

        def client_status_pair():
            # Through Selenium's own connection: its cost per request
            # (urllib3, JSON) on both sides of the ratio.
            for _ in range(2):
                ours.command_executor._request("GET", f"http://127.0.0.1:{server.port}/status")

        def chrome_pair():
            chrome.find_element(By.CSS_SELECTOR, "span.c7").text

        def ours_xpath():
            ours.find_element(By.XPATH, '//Button[@text="7"]')

        def ours_css():
            ours.find_element(By.CSS_SELECTOR, 'Button[text="7"]')

        def xpath_and_css(count):
            """The two finds in turns, each timed: what runs before a block
            (Chromium's leftovers) weighs on both alike."""
            xpath = css = 0.0
            for _ in range(count):
                start = time.perf_counter()
                ours_xpath()
                middle = time.perf_counter()
                ours_css()
                css += time.perf_counter() - middle
                xpath += middle - start
            return xpath / count, css / count

        connection, bare_pair = status_pair(server.port)
        samples = {name: [] for name in ("ours", "chrome", "status", "client status", "xpath", "css")}
        for _ in range(ROUNDS):
            samples["ours"].append(timed(ours_pair, PAIRS))
            samples["chrome"].append(timed(chrome_pair, PAIRS))
            samples["status"].append(timed(bare_pair, PAIRS))
            samples["client status"].append(timed(client_status_pair, PAIRS))
            xpath, css = xpath_and_css(PAIRS)
            samples["xpath"].append(xpath)
            samples["css"].append(css)
        connection.close()
        ms = {name: median_ms(values) for name, values in samples.items()}
        print(f"find (css) + text, ours on the calculator / ChromeDriver on a 30-element page: "
              f"{ms['ours'] / ms['chrome']:.2f}x ({ms['ours']:.2f} ms / {ms['chrome']:.2f} ms a pair)")
        print(f"the same pair / two GET /status on one connection: "
              f"{ms['ours'] / ms['status']:.2f}x ({ms['status']:.2f} ms the two)")
        print(f"the same pair / two GET /status through the same Selenium client: "
              f"{ms['ours'] / ms['client status']:.2f}x ({ms['client status']:.2f} ms the two)")
        print(f"xpath find / css find on the same window: "
              f"{ms['xpath'] / ms['css']:.2f}x ({ms['xpath']:.2f} ms / {ms['css']:.2f} ms)")

        ours.quit()
        started = time.perf_counter()
        again = server.session(calculator)
        again.find_element(By.CSS_SELECTOR, "QLineEdit")
        new_session = min(new_session, time.perf_counter() - started)
        again.quit()
        launch = kwscript_launch(root, calculator)
        print(f"new session to the first answered command / kwscript --launch to its first output: "
              f"{new_session / launch:.2f}x ({new_session:.2f} s / {launch:.2f} s)")

        one = commands_per_second(server, calculator, 1)
        four = commands_per_second(server, calculator, 4)
        print(f"four sessions at once / one session, commands a second: {four / one:.2f}x "
              f"({four:.0f} / {one:.0f}; 2 cores)")
    finally:
        chrome.quit()
        server.stop()


def kwscript_launch(root, program):
    script = tempfile.NamedTemporaryFile("w", suffix=".js", delete=False)
    script.write('app.echo("ready");\n')
    script.close()
    command = [os.path.join(root, "scripts", "script.sh"), "--launch", program, "--", script.name]
    best = None
    for _ in range(3):
        started = time.perf_counter()
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        for line in process.stdout:
            if b"ready" in line:
                elapsed = time.perf_counter() - started
                best = elapsed if best is None else min(best, elapsed)
                break
        process.wait()
    return best


def commands_per_second(server, program, count):
    sessions = [server.session(program) for _ in range(count)]
    done = []
    seconds = 5.0

    def work(session):
        n = 0
        deadline = time.perf_counter() + seconds
        while time.perf_counter() < deadline:
            session.find_element(By.CSS_SELECTOR, "QLineEdit").text
            n += 2
        done.append(n)
    threads = [threading.Thread(target=work, args=(s,)) for s in sessions]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for session in sessions:
        session.quit()
    return sum(done) / seconds


if __name__ == "__main__":
    main()
