"""Fixtures of the WebDriver end-to-end tests.

Each test module gets a kwdriver of its own: started on a free port of
127.0.0.1, in a Wine prefix of the module's own (so that ending the prefix's
programs at the end ends only what this module started) and stopped by its
process id when the module is done. Sessions are WebDriver sessions of
Selenium's Python client on one of Qt's example applications.

Environment:
  KW_QT_APPS      Qt's example applications (default ../shared/qt48-apps)
  KW_DRIVER_EXE   a built kwdriver.exe, run directly under cmake/wine-run.sh;
                  without it scripts/driver.sh (which builds what is missing)
  KW_WINE_ROOT    where the Wine prefixes go (default build/wine)
"""

import json
import os
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.request
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.common.options import ArgOptions

ROOT = Path(__file__).resolve().parents[2]
APPS = Path(os.environ.get("KW_QT_APPS") or ROOT.parent / "shared" / "qt48-apps")
SDK = Path(os.environ.get("KW_QT_SDK") or ROOT.parent / "shared" / "qt48-sdk")
WINE_ROOT = Path(os.environ.get("KW_WINE_ROOT") or ROOT / "build" / "wine")
ELEMENT_KEY = "element-6066-11e4-a52e-4f735466cecf"
START_TIMEOUT = float(os.environ.get("KW_DRIVER_START_TIMEOUT", "240"))


def app_path(name):
    """The unix path of one of Qt's example applications."""
    return str(APPS / f"{name}.exe")


def windows_path(path):
    """A unix path as Wine's Z: drive shows it."""
    return "Z:" + str(path).replace("/", "\\")


def free_port():
    """A port of 127.0.0.1 that nothing listens on (the kernel's choice)."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def require_apps():
    if not (APPS / "calculator.exe").exists() or not (SDK / "lib").exists():
        pytest.skip(f"SKIPPED: the WebDriver tests need Qt's example applications ({APPS}) and a Qt 4.8 SDK ({SDK})")


def http(method, url, body=None, timeout=120):
    """One HTTP request; (status, decoded JSON body or None)."""
    data = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(url, data=data, method=method)
    if data is not None:
        request.add_header("Content-Type", "application/json; charset=utf-8")
    try:
        with urllib.request.urlopen(request, timeout=timeout) as response:
            status, raw = response.status, response.read()
    except urllib.error.HTTPError as error:
        status, raw = error.code, error.read()
    try:
        return status, json.loads(raw.decode("utf-8")) if raw else None
    except ValueError:
        return status, raw.decode("utf-8", "replace")


class Driver:
    """A kwdriver process (group) of this test run and its URL."""

    def __init__(self, name, extra_args=(), env=None, script=False):
        self.port = free_port()
        self.url = f"http://127.0.0.1:{self.port}"
        # A prefix (and so a wineserver and a virtual display) of this driver's own.
        self.wine_root = WINE_ROOT / f"webdriver_{name}"
        self.wine_root.mkdir(parents=True, exist_ok=True)
        self.prefix = self.wine_root / "driver"
        # Made from the template the other prefixes share.
        template = os.environ.get("KW_WINE_TEMPLATE") or str(WINE_ROOT / ".template")
        environment = dict(os.environ, KW_WINE_ROOT=str(self.wine_root), WINEPREFIX=str(self.prefix),
                           KW_WINE_TEMPLATE=template)
        environment.update(env or {})
        args = ["--port", str(self.port), "--host", "127.0.0.1", *extra_args]
        exe = os.environ.get("KW_DRIVER_EXE")
        if exe and not script:
            command = [str(ROOT / "cmake" / "wine-run.sh"), "--prefix", "driver", "--display", exe, *args]
        else:
            command = [str(ROOT / "scripts" / "driver.sh"), *args]
        self.log_path = self.wine_root / f"driver-{self.port}.log"
        self.log = open(self.log_path, "wb")
        # A process group of its own: stopping it reaches wine-run.sh's children too.
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=subprocess.STDOUT, env=environment, start_new_session=True)
        self.environment = environment

    def wait_ready(self, timeout=START_TIMEOUT):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                raise RuntimeError(f"kwdriver ended with status {self.process.returncode}:\n{self.log_text()}")
            try:
                status, body = http("GET", self.url + "/status", timeout=5)
                if status == 200 and isinstance(body, dict) and "ready" in body.get("value", {}):
                    return body["value"]
            except OSError:
                pass
            time.sleep(0.5)
        raise RuntimeError(f"kwdriver did not answer /status on {self.url} within {timeout:.0f} s:\n{self.log_text()}")

    def log_text(self):
        self.log.flush()
        return self.log_path.read_text(errors="replace")[-4000:]

    def stop(self):
        """Ends the driver's process group by its id, then the Wine programs of its prefix."""
        # SIGINT first: Wine hands it to kwdriver as a Ctrl+C, on which it
        # ends its sessions and the applications it launched.
        for sig, wait in ((signal.SIGINT, 25), (signal.SIGTERM, 10), (signal.SIGKILL, 10)):
            if self.process.poll() is not None:
                break
            try:
                os.killpg(self.process.pid, sig)
                self.process.wait(timeout=wait)
            except subprocess.TimeoutExpired:
                continue
            except ProcessLookupError:
                break
        # The applications the sessions launched live in this prefix alone.
        if (self.prefix / "system.reg").exists():
            subprocess.run(["wineserver", "-k"], env=self.environment, check=False,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
        self.log.close()


def start_driver(request, name, extra_args=(), env=None, script=False):
    """A started kwdriver that the requesting fixture's finalizer stops;
    script=True starts it by scripts/driver.sh whatever KW_DRIVER_EXE says."""
    require_apps()
    driver = Driver(name, extra_args, env, script)
    request.addfinalizer(driver.stop)
    driver.wait_ready()
    return driver


@pytest.fixture(scope="module")
def kwdriver(request):
    """The module's kwdriver (up to 4 sessions at once)."""
    return start_driver(request, request.module.__name__.split(".")[-1], ["--max-sessions", "4"])


def options(app=None, **capabilities):
    """Capabilities for an application of Qt's examples (kw:app in unix form)."""
    o = ArgOptions()
    o.set_capability("platformName", "windows")
    if app is not None:
        o.set_capability("kw:app", app_path(app) if "/" not in app and "\\" not in app else app)
    for name, value in capabilities.items():
        o.set_capability(name.replace("__", ":"), value)
    return o


@pytest.fixture
def new_session(kwdriver):
    """new_session(app, **caps): a Selenium session on the module's driver, quit afterwards."""
    sessions = []

    def make(app, url=None, **capabilities):
        d = webdriver.Remote(command_executor=url or kwdriver.url, options=options(app, **capabilities))
        sessions.append(d)
        return d

    yield make
    for d in reversed(sessions):
        try:
            d.quit()
        except Exception:
            pass


def session_url(d, *parts):
    """The URL of a command of session d: session_url(d, "element", id, "text")."""
    base = d.command_executor._url.rstrip("/")
    return "/".join([base, "session", d.session_id, *parts])


def w3c_error(status_and_body):
    """The W3C error of an answer: (HTTP status, error code, message)."""
    status, body = status_and_body
    assert isinstance(body, dict) and isinstance(body.get("value"), dict), f"not a W3C answer: {status} {body!r}"
    value = body["value"]
    return status, value.get("error"), value.get("message", "")

