#!/usr/bin/env python3
"""Throws a few thousand malformed and random requests at a running kwdriver.

Every request must get a well-formed answer (a WebDriver error body with the
status its code has) or a closed connection; the server must stay up, and
/status must still answer at the end. Prints "http_fuzz passed" or
"http_fuzz FAILED: ..." and exits 0 or 1.

  http_fuzz.py --driver build/bin/kwdriver.exe [--wine-run cmake/wine-run.sh]
               [--requests N] [--seed S] [--port P (a kwdriver already running)]
"""
import argparse
import http.client
import json
import os
import random
import re
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor

STATUS_OF = {
    "element click intercepted": 400, "element not interactable": 400, "insecure certificate": 400,
    "invalid argument": 400, "invalid cookie domain": 400, "invalid element state": 400,
    "invalid selector": 400, "invalid session id": 404, "javascript error": 500,
    "move target out of bounds": 500, "no such alert": 404, "no such cookie": 404,
    "no such element": 404, "no such frame": 404, "no such window": 404, "no such shadow root": 404,
    "script timeout": 500, "session not created": 500, "stale element reference": 404,
    "detached shadow root": 404, "timeout": 500, "unable to set cookie": 500,
    "unable to capture screen": 500, "unexpected alert open": 500, "unknown command": 404,
    "unknown error": 500, "unknown method": 405, "unsupported operation": 500,
}
# HTTP's own refusals keep their status, with an "invalid argument" body.
HTTP_STATUSES = {413: "invalid argument", 414: "invalid argument"}

PATHS = [
    "/status", "/session", "/session/{s}", "/session/{s}/timeouts", "/session/{s}/url", "/session/{s}/back",
    "/session/{s}/title", "/session/{s}/window", "/session/{s}/window/handles", "/session/{s}/window/rect",
    "/session/{s}/window/maximize", "/session/{s}/frame", "/session/{s}/element", "/session/{s}/elements",
    "/session/{s}/element/{e}/element", "/session/{s}/element/{e}/attribute/x", "/session/{s}/element/{e}/css/x",
    "/session/{s}/element/{e}/text", "/session/{s}/element/{e}/click", "/session/{s}/element/{e}/value",
    "/session/{s}/execute/sync", "/session/{s}/execute/async", "/session/{s}/cookie", "/session/{s}/actions",
    "/session/{s}/alert/text", "/session/{s}/screenshot", "/session/{s}/source", "/session/{s}/print",
    "/wd/hub/status", "/nowhere", "/session/{s}/element/{e}/nowhere", "/", "",
]
METHODS = ["GET", "POST", "DELETE", "PUT", "PATCH", "OPTIONS", "HEAD", "TRACE", "CONNECT", "get", "FOO"]
VALUES = [None, True, False, 0, -1, 1.5, 2 ** 64, "", "x" * 300, [], {}, [1, [2]], {"a": {"b": None}}, "\u00e9\u4e2d"]


class Failure(Exception):
    pass


def random_json(rng, depth=0):
    kind = rng.randrange(6 if depth < 4 else 3)
    if kind == 0:
        return rng.choice(VALUES)
    if kind == 1:
        return rng.randrange(-10 ** 6, 10 ** 6)
    if kind == 2:
        return "".join(chr(rng.randrange(1, 0x3000)) for _ in range(rng.randrange(12)))
    if kind == 3:
        return [random_json(rng, depth + 1) for _ in range(rng.randrange(4))]
    keys = ["using", "value", "text", "script", "args", "handle", "x", "width", "implicit", "script", "actions",
            "capabilities", "alwaysMatch", "firstMatch", "kw:app", "platformName", "id", "ms", "type"]
    return {rng.choice(keys): random_json(rng, depth + 1) for _ in range(rng.randrange(5))}


def capabilities(rng):
    # Applications that do not exist: the fuzz never starts or attaches to anything.
    always = {"kw:app": "Z:\\nonexistent\\fuzz%d.exe" % rng.randrange(1000)}
    for key in rng.sample(["platformName", "browserName", "timeouts", "kw:args", "kw:newCommandTimeout",
                           "kw:maxItems", "appium:app", "unknown", "se:option", "pageLoadStrategy"], rng.randrange(4)):
        always[key] = random_json(rng)
    body = rng.choice([{"capabilities": {"alwaysMatch": always}},
                       {"capabilities": {"firstMatch": [always, random_json(rng)]}},
                       {"capabilities": {"alwaysMatch": always, "firstMatch": random_json(rng)}},
                       {"desiredCapabilities": always}, random_json(rng)])
    return json.dumps(body).encode()


def make_request(rng, session_ids):
    """One request's bytes, and whether half-closing after sending is part of it."""
    kind = rng.randrange(14)
    path = rng.choice(PATHS).format(s=rng.choice(session_ids), e="e%d" % rng.randrange(9))
    method = rng.choice(METHODS)
    if kind == 0:  # random bytes
        return bytes(rng.randrange(256) for _ in range(rng.randrange(1, 400))), rng.random() < 0.5
    if kind == 1:  # broken request lines
        line = rng.choice([b"GET", b"GET /status", b"GET /status HTTP/9.9", b" / HTTP/1.1", b"GET  /status  HTTP/1.1",
                           b"\x00\x01 /status HTTP/1.1", b"GET /status HTTP/1.1 extra", b"GET %zz HTTP/1.1",
                           b"POST /session/%00/title HTTP/1.1", b"GET /" + b"a" * rng.randrange(8000, 9000) + b" HTTP/1.1"])
        return line + b"\r\n\r\n", False
    if kind == 2:  # huge or many headers
        if rng.random() < 0.5:
            headers = b"X-Big: " + b"h" * rng.randrange(8000, 20000) + b"\r\n"
        else:
            headers = b"".join(b"X-%d: %d\r\n" % (i, i) for i in range(rng.randrange(100, 3000)))
        return b"GET /status HTTP/1.1\r\n" + headers + b"\r\n", False
    if kind == 3:  # malformed bodies on POST endpoints
        body = rng.choice([b"{", b"}", b"[]", b"null", b"\"x\"", b"{\"a\":}", b"\xff\xfe{}", b"{\"using\":\"\xc3\"}",
                           b"[" * 5000 + b"]" * 5000, b"{\"a\":" * 400 + b"1" + b"}" * 400, b"1e999999",
                           json.dumps(random_json(rng)).encode()])
        return b"POST %s HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % (path.encode(), len(body)) + body, False
    if kind == 4:  # truncated bodies: the client stops early and half-closes
        body = json.dumps(random_json(rng)).encode()
        return b"POST %s HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % (path.encode(), len(body) + 50) + body, True
    if kind == 5:  # odd Content-Length and Transfer-Encoding values
        header = rng.choice([b"Content-Length: -1", b"Content-Length: abc", b"Content-Length: 99999999999999999999",
                             b"Content-Length: 1\r\nContent-Length: 2", b"Transfer-Encoding: chunked",
                             b"Transfer-Encoding: gzip", b"Content-Length: 70000000"])
        return b"POST /session HTTP/1.1\r\n" + header + b"\r\n\r\n" + rng.choice([b"", b"zz\r\n", b"0\r\n\r\n", b"{}"]), True
    if kind in (6, 7):  # new sessions with random capabilities
        body = capabilities(rng)
        return b"POST /session HTTP/1.1\r\nContent-Type: application/json\r\nContent-Length: %d\r\n\r\n" % len(body) + body, False
    # well-formed requests of any method on known and unknown paths, bodies of wrong types
    body = json.dumps(random_json(rng)).encode() if rng.random() < 0.7 else b""
    head = b"%s %s HTTP/1.1\r\nHost: 127.0.0.1\r\n" % (method.encode(), path.encode() or b"/")
    if body or rng.random() < 0.5:
        head += b"Content-Length: %d\r\n" % len(body)
    return head + b"\r\n" + body, False


def read_response(sock, head_request=False):
    """(status, body bytes, head) of the first response, or None when the connection closed without one."""
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = sock.recv(65536)
        if not chunk:
            return None
        data += chunk
    head, _, rest = data.partition(b"\r\n\r\n")
    match = re.match(rb"HTTP/1\.[01] (\d{3}) ", head)
    if not match:
        raise Failure("not an HTTP response: %r" % head[:100])
    length = re.search(rb"(?i)\r\ncontent-length: *(\d+)", head)
    length = int(length.group(1)) if length and not head_request else 0
    while len(rest) < length:
        chunk = sock.recv(65536)
        if not chunk:
            raise Failure("response cut short: %r" % head[:100])
        rest += chunk
    return int(match.group(1)), rest[:length], head


def check(status, body, head, request):
    what = request[:80]
    if status == 200:
        if not request.startswith(b"HEAD "):
            json.loads(body)
        return
    if head.startswith(b"HTTP/1.1 405") or status >= 400:
        if not body and b"HEAD " == request[:5]:
            return
        try:
            value = json.loads(body)["value"]
        except Exception as error:
            raise Failure("status %d without a WebDriver error body (%s) for %r: %r" % (status, error, what, body[:200]))
        error = value.get("error")
        if set(value) != {"error", "message", "stacktrace"}:
            raise Failure("error body %r for %r" % (value, what))
        expected = HTTP_STATUSES.get(status) if status in HTTP_STATUSES else None
        if expected is not None:
            if error != expected:
                raise Failure("status %d with error %r for %r" % (status, error, what))
        elif STATUS_OF.get(error) != status:
            raise Failure("error %r answered with status %d for %r" % (error, status, what))
        return
    raise Failure("status %d for %r" % (status, what))


def exchange(port, request, half_close):
    with socket.create_connection(("127.0.0.1", port), timeout=30) as sock:
        try:
            sock.sendall(request)
            if half_close:
                sock.shutdown(socket.SHUT_WR)
            answer = read_response(sock, request.startswith(b"HEAD "))
        except (ConnectionResetError, BrokenPipeError):
            return "closed"
        if answer is None:
            return "closed"
        status, body, head = answer
        check(status, body, head, request)
        return status


def status_check(port):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    connection.request("GET", "/status")
    response = connection.getresponse()
    body = json.loads(response.read())
    connection.close()
    if response.status != 200 or body["value"]["ready"] is not True:
        raise Failure("/status answered %d %r" % (response.status, body))


def latency(port, count=300):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    times = []
    for _ in range(count + 10):
        start = time.perf_counter()
        connection.request("GET", "/status")
        connection.getresponse().read()
        times.append((time.perf_counter() - start) * 1000)
    connection.close()
    return statistics.median(times[10:])


def start_driver(args):
    command = ([args.wine_run, "--prefix", "webdriver-fuzz"] if args.wine_run else []) + \
        [args.driver, "--port", "0", "--log-level", "quiet"]
    # wine-run.sh execs wine without a display: the pid is kwdriver's own.
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
    lines = []
    ready = threading.Event()

    def read():
        for line in process.stdout:
            lines.append(line.decode(errors="replace").rstrip())
            if "listening on" in lines[-1]:
                ready.set()
    threading.Thread(target=read, daemon=True).start()
    if not ready.wait(180):
        process.kill()
        raise Failure("kwdriver did not start: %s" % lines)
    port = int(re.search(r":(\d+)\s*$", [l for l in lines if "listening on" in l][0]).group(1))
    return process, port


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--driver")
    parser.add_argument("--wine-run")
    parser.add_argument("--port", type=int)
    parser.add_argument("--requests", type=int, default=3000)
    parser.add_argument("--seed", type=int, default=int(os.environ.get("KW_FUZZ_SEED", "0")) or int(time.time()))
    args = parser.parse_args()
    print("seed %d" % args.seed, flush=True)
    rng = random.Random(args.seed)
    process = None
    try:
        if args.port:
            port = args.port
        else:
            process, port = start_driver(args)
        status_check(port)
        session_ids = ["0" * 32, "nosuch", "%2e%2e", "a" * 500, "\u00e9".encode().decode("latin-1")]
        requests = [make_request(rng, session_ids) for _ in range(args.requests)]
        outcomes = {}
        done = 0
        with ThreadPoolExecutor(max_workers=12) as pool:
            for start in range(0, len(requests), 250):
                batch = requests[start:start + 250]
                for outcome in pool.map(lambda r: exchange(port, *r), batch):
                    outcomes[outcome] = outcomes.get(outcome, 0) + 1
                done += len(batch)
                if process is not None and process.poll() is not None:
                    raise Failure("kwdriver ended (status %s) after %d requests" % (process.returncode, done))
                status_check(port)
        print("answers: %s" % ", ".join("%s x%d" % (k, v) for k, v in sorted(outcomes.items(), key=str)))
        print("GET /status keep-alive median %.2f ms" % latency(port), flush=True)
        if process is not None:
            process.send_signal(signal.SIGINT)  # Wine turns it into Ctrl+C: kwdriver ends its sessions and exits
            try:
                code = process.wait(30)
            except subprocess.TimeoutExpired:
                raise Failure("kwdriver did not end on SIGINT")
            if code != 0:
                raise Failure("kwdriver exited with %d on SIGINT" % code)
        print("http_fuzz passed (%d requests)" % len(requests))
        return 0
    except Failure as failure:
        print("http_fuzz FAILED: %s" % failure)
        return 1
    finally:
        if process is not None and process.poll() is None:
            process.kill()
            process.wait()


if __name__ == "__main__":
    sys.exit(main())
