"""The "web browser" of the demonstration: opens the address in Chromium, does what a user would do on the login page,
and lets Chromium hand the vellumline:// link to the desktop.

    scripted_browser.py LOG-FOLDER ADDRESS

Where Chromium or its driver is missing, a plain HTTP client fills the form in instead, and the log says so.
"""

import html.parser
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

SCHEME = "vellumline"
KNOWN_FIELDS = {"email": "practice@example.com", "password": "practice makes perfect"}


def signed_in():
    return subprocess.run(["secret-tool", "lookup", "service", "com.kelthorne.vellumline.session", "account", "session"],
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def wait(seconds, condition, interval=0.05):
    deadline = time.monotonic() + seconds
    while not (answer := condition()):
        if time.monotonic() > deadline:
            return None
        time.sleep(interval)
    return answer


class Driver:
    """As much of the WebDriver protocol (W3C WebDriver, sections 8 to 12) as one login needs."""

    def __init__(self, folder, allowed_origin):
        # The choice "Always allow 127.0.0.1 to open links of this type" of Chromium's own question, made beforehand.
        profile = os.path.join(folder, "profile", "Default")
        os.makedirs(profile)
        with open(os.path.join(profile, "Preferences"), "w", encoding="utf-8") as preferences:
            json.dump({"protocol_handler": {"allowed_origin_protocol_pairs": {allowed_origin: {SCHEME: True}}}},
                      preferences)
        self.log = open(os.path.join(folder, "driver.log"), "w+b")
        self.process = subprocess.Popen(["chromedriver", "--port=0"], stdin=subprocess.DEVNULL, stdout=self.log,
                                        stderr=self.log)
        self.session = None
        found = wait(20, self._port)
        if not found:
            raise RuntimeError("chromedriver did not start")
        self.base = f"http://127.0.0.1:{found}"
        # No sandbox: it cannot start as root, and the only page that is visited is our own service's. With another
        # password store Chromium asks to unlock a keyring and grabs the keyboard.
        arguments = ["--no-sandbox", "--test-type", "--no-first-run", "--no-default-browser-check", "--disable-gpu",
                     "--disable-dev-shm-usage", "--password-store=basic", "--disable-sync",
                     "--disable-background-networking", "--disable-component-update", "--window-size=900,700",
                     "--window-position=60,40", "--user-data-dir=" + os.path.join(folder, "profile")]
        answer = self.call("POST", "/session", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome",
            # The default, "ignore", answers a navigation that the page itself abandons with an error.
            "pageLoadStrategy": "normal",
            "goog:chromeOptions": {"args": arguments, "excludeSwitches": ["enable-automation"]}}}})
        self.session = answer["sessionId"]

    def _port(self):
        self.log.flush()
        with open(self.log.name, encoding="utf-8", errors="replace") as log:
            found = re.search(r"started successfully on port (\d+)", log.read())
        return found.group(1) if found else None

    def call(self, method, path, body=None):
        if self.session:
            path = f"/session/{self.session}{path}"
        data = json.dumps(body if body is not None else {}).encode() if method == "POST" else None
        request = urllib.request.Request(self.base + path, data=data, method=method,
                                         headers={"Content-Type": "application/json"})
        # The proxy of the caller's environment has no business with the loopback address.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=60) as reply:
                return json.load(reply)["value"]
        except urllib.error.HTTPError as error:
            # The second line has the reason of the first, such as that the browser could not be reached.
            raise RuntimeError(", ".join(json.load(error)["value"]["message"].splitlines()[:2])) from error

    def find(self, selector):
        found = self.call("POST", "/elements", {"using": "css selector", "value": selector})
        shown = []
        for element in found:
            identifier = next(iter(element.values()))
            if self.call("GET", f"/element/{identifier}/displayed"):
                shown.append(identifier)
        return shown

    def close(self):
        if self.session:
            try:
                self.call("DELETE", "")
            except (RuntimeError, OSError):
                pass
        self.process.terminate()
        self.process.wait()
        self.log.close()


def screenshot(folder, name):
    subprocess.run(["import", "-window", "root", os.path.join(folder, name)], stdin=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=False)


def with_chromium(folder, address, say):
    parts = urllib.parse.urlsplit(address)
    with tempfile.TemporaryDirectory(dir=os.environ.get("XDG_RUNTIME_DIR")) as scratch:
        driver = Driver(scratch, f"{parts.scheme}://{parts.netloc}")
        try:
            driver.call("POST", "/url", {"url": address})
            say(f"Chromium shows \"{driver.call('GET', '/title')}\"")
            screenshot(folder, "login-page.png")
            for field in driver.find("form input:not([type=hidden]):not([type=submit]):not([type=checkbox])"):
                kind = driver.call("GET", f"/element/{field}/attribute/type") or "text"
                if not driver.call("GET", f"/element/{field}/property/value"):
                    driver.call("POST", f"/element/{field}/value", {"text": KNOWN_FIELDS.get(kind, "practice")})
            link_selector = f"a[href^='{SCHEME}:']"
            if not driver.find(link_selector):
                buttons = wait(5, lambda: driver.find("form button:not([type=button]), form input[type=submit]"))
                if not buttons:
                    raise RuntimeError("the login page has no button")
                label = driver.call("GET", f"/element/{buttons[0]}/text")
                driver.call("POST", f"/element/{buttons[0]}/click")
                say(f"pressed the button \"{label}\"")
            links = wait(10, lambda: driver.find(link_selector))
            screenshot(folder, "login-done.png")
            if wait(3, signed_in):
                say("the page opened the link by itself; Chromium handed it to the desktop")
                return
            if not links:
                raise RuntimeError(f"no {SCHEME}: link on the page after the sign-in")
            label = driver.call("GET", f"/element/{links[0]}/text")
            target = driver.call("GET", f"/element/{links[0]}/attribute/href")
            driver.call("POST", f"/element/{links[0]}/click")
            if wait(3, signed_in):
                say(f"clicked \"{label}\"; Chromium handed the link to the desktop")
                return
            # The question "Open xdg-open?" has the focus on its Cancel button.
            screenshot(folder, "login-question.png")
            subprocess.run(["xdotool", "key", "--delay", "200", "Tab", "Return"], stdin=subprocess.DEVNULL, check=False)
            if wait(3, signed_in):
                say(f"clicked \"{label}\" and answered Chromium's question; Chromium handed the link to the desktop")
                return
            subprocess.run(["xdg-open", target], stdin=subprocess.DEVNULL, check=False)
            say(f"clicked \"{label}\", which Chromium did not hand on; opened its link with xdg-open instead")
        finally:
            driver.close()


class LoginPage(html.parser.HTMLParser):
    """The first form and the first program link of a page."""

    def __init__(self):
        super().__init__()
        self.action = None
        self.method = "get"
        self.fields = {}
        self.link = None

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        if tag == "form" and self.action is None:
            self.action = attributes.get("action") or ""
            self.method = (attributes.get("method") or "get").lower()
        elif tag in ("input", "button") and attributes.get("name"):
            kind = attributes.get("type") or "text"
            self.fields[attributes["name"]] = attributes.get("value") or KNOWN_FIELDS.get(kind, "practice")
        elif tag == "a" and (attributes.get("href") or "").startswith(SCHEME + ":") and self.link is None:
            self.link = attributes["href"]


def link_behind(address):
    """The program's link behind the login page: the form is filled in by a plain HTTP client."""
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({}), urllib.request.HTTPCookieProcessor())

    def page_at(target, data=None):
        with opener.open(urllib.request.Request(target, data=data), timeout=20) as reply:
            page = LoginPage()
            page.feed(reply.read().decode("utf-8", "replace"))
            return page

    page = page_at(address)
    if page.link is None:
        if page.action is None:
            raise RuntimeError("the login page has neither a form nor a link")
        target = urllib.parse.urljoin(address, page.action)
        filled = urllib.parse.urlencode(page.fields)
        page = page_at(target, filled.encode()) if page.method == "post" else page_at(f"{target}?{filled}")
    if page.link is None:
        raise RuntimeError(f"no {SCHEME}: link on the page after the sign-in")
    return page.link


def with_plain_client(address, say):
    say("Chromium or chromedriver is not installed: a plain HTTP client fills the login form in instead")
    subprocess.run(["xdg-open", link_behind(address)], stdin=subprocess.DEVNULL, check=False)
    say("opened the page's link with xdg-open")


def main():
    folder, address = sys.argv[1], sys.argv[2]
    running = os.path.join(folder, "browser.running")
    with open(os.path.join(folder, "browser.log"), "a", encoding="utf-8") as log:
        def say(line):
            log.write(line + "\n")
            log.flush()

        with open(running, "w", encoding="utf-8"):
            pass
        try:
            parts = urllib.parse.urlsplit(address)
            # The query carries the challenge: nothing secret, but nothing for a log either.
            say(f"asked to open {parts.scheme}://{parts.netloc}{parts.path}")
            if shutil.which("chromium") and shutil.which("chromedriver"):
                with_chromium(folder, address, say)
            else:
                with_plain_client(address, say)
        except Exception as error:  # whatever it is, the log is where it can be seen
            say(f"FAILED: {error}")
            raise
        finally:
            os.remove(running)


if __name__ == "__main__":
    main()
