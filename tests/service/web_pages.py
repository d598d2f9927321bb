#!/usr/bin/python3
"""The service's pages in a real browser: Chromium without scripts, at 320 and at 1200 pixels, light and dark, as a screen
reader gets them; and what a page of another origin can do with them.

    web_pages.py --build FOLDER --output FOLDER      screenshots of every page go to the output folder
"""

import argparse
import base64
import http.server
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.parse
import urllib.request

CHALLENGE = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"
VERIFIER = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"
PASSWORD = "correct horse battery"
NEW_PASSWORD = "a new password for it"
LONG_NAME = "a.very.long.name.without.end.that.somebody.has.really@mail.department.of.a.large.organisation.example.org"

# Runs inside the page, by the debugger: the page's own scripts are off. Colours are compared as WCAG 2.1 does it
# (1.4.3), for every piece of text that is shown.
LOOK = r"""
(() => {
  const wrong = [];
  const width = document.documentElement.clientWidth;
  if (document.documentElement.scrollWidth > width) wrong.push("is wider than the window");
  const shown = element => element.checkVisibility() && element.getClientRects().length > 0;
  const channels = colour => { const m = colour.match(/[\d.]+/g).map(Number); return m.length > 3 ? m : [...m, 1]; };
  const light = rgb => { const [r, g, b] = rgb.map(c => { c /= 255; return c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4; });
    return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
  const behind = element => { for (; element; element = element.parentElement) {
    const colour = channels(getComputedStyle(element).backgroundColor); if (colour[3] > 0.99) return colour; } return [255, 255, 255, 1]; };
  const contrast = (a, b) => { const [x, y] = [light(a.slice(0, 3)), light(b.slice(0, 3))].sort((p, q) => q - p);
    return (x + 0.05) / (y + 0.05); };
  for (const element of document.body.querySelectorAll("*")) {
    if (!shown(element)) continue;
    const own = [...element.childNodes].some(node => node.nodeType === 3 && node.data.trim());
    const box = element.getBoundingClientRect();
    if (box.right > width + 1 || box.left < -1) wrong.push(`${element.tagName} stands out of the window`);
    if (own || element.tagName === "INPUT") {
      const ratio = contrast(channels(getComputedStyle(element).color), behind(element));
      if (ratio < 4.5) wrong.push(`"${(element.textContent || element.id).slice(0, 30)}" has contrast ${ratio.toFixed(2)}`);
    }
    if (element.tagName === "INPUT") {
      const style = getComputedStyle(element);
      if (contrast(channels(style.borderTopColor), behind(element.parentElement)) < 3) wrong.push(`the edge of ${element.id} is pale`);
      if (parseFloat(style.fontSize) < 16) wrong.push(`${element.id} makes a telephone zoom in`);
    }
    // WCAG 2.2, 2.5.8; links in a sentence are excepted there.
    if (element.matches("button,input,summary,a.button") && (box.height < 24 || box.width < 24)) wrong.push(`${element.tagName} is small`);
  }
  const ids = [...document.querySelectorAll("[id]")].map(element => element.id);
  if (new Set(ids).size !== ids.length) wrong.push("has an id twice");
  if (document.documentElement.lang !== "en") wrong.push("says no language");
  if (document.scripts.length) wrong.push("has a script");
  return wrong;
})()
"""


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


class Browser:
    """Chromium by its WebDriver; a session has a profile of its own."""

    def __init__(self):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True,
                                       stderr=subprocess.DEVNULL)
        port = None
        for line in self.driver.stdout:
            found = re.search(r"successfully on port (\d+)", line)
            if found:
                port = found[1]
                break
        check(port, "chromedriver does not start")
        # Its further words must not fill the pipe.
        threading.Thread(target=self.driver.stdout.read, daemon=True).start()
        self.base = f"http://127.0.0.1:{port}"
        # No sandbox: it cannot start as root, and the only pages are the test's own.
        options = {"args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                            "--disable-background-networking", "--no-first-run", "--window-size=1200,900"]}
        value = self.call("POST", "/session", {"capabilities": {"alwaysMatch": {"goog:chromeOptions": options}}})
        self.session = "/session/" + value["sessionId"]

    def call(self, method, path, body=None):
        request = urllib.request.Request(self.base + path, None if body is None else json.dumps(body).encode(),
                                         {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise Failure(json.load(error)["value"]["message"].splitlines()[0]) from error

    def devtools(self, command, **parameters):
        return self.call("POST", self.session + "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def scripts(self, allowed):
        self.devtools("Emulation.setScriptExecutionDisabled", value=not allowed)

    def shape(self, width, scheme):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=800, deviceScaleFactor=1, mobile=False)
        self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def open(self, address):
        self.call("POST", self.session + "/url", {"url": address})

    def address(self):
        return self.call("GET", self.session + "/url")

    def evaluate(self, expression):
        answer = self.devtools("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        check("exceptionDetails" not in answer, f"in the page: {json.dumps(answer)[:300]}")
        return answer["result"].get("value")

    def element(self, selector):
        found = self.call("POST", self.session + "/element", {"using": "css selector", "value": selector})
        return f"{self.session}/element/{next(iter(found.values()))}"

    def type(self, selector, text):
        element = self.element(selector)
        self.call("POST", element + "/clear", {})
        self.call("POST", element + "/value", {"text": text})

    def press(self, selector):
        self.call("POST", self.element(selector) + "/click", {})

    def tab(self):
        self.call("POST", self.session + "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": [
            {"type": "keyDown", "value": "\ue004"}, {"type": "keyUp", "value": "\ue004"}]}]})

    def text(self):
        return self.evaluate("document.body.innerText")

    def screenshot(self, path):
        data = self.devtools("Page.captureScreenshot", format="png", captureBeyondViewport=True)["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))

    def tree(self):
        """(role, name, level) of everything that a screen reader is told about."""
        nodes = self.devtools("Accessibility.getFullAXTree")["nodes"]
        return [(node["role"]["value"], node.get("name", {}).get("value", ""),
                 next((item["value"]["value"] for item in node.get("properties", []) if item["name"] == "level"), 0))
                for node in nodes if not node["ignored"]]

    def end(self):
        try:
            self.call("DELETE", self.session)
        finally:
            self.driver.terminate()
            self.driver.wait(20)


class Service:
    def __init__(self, program, folder, options):
        self.program = program
        self.database = "sqlite:" + os.path.join(folder, "service.sqlite")
        self.process = subprocess.Popen([program, "--port", "0", "--database", self.database, *options],
                                        stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        check("ready on" in line, "the service does not start")
        self.url = line.split()[-1]

    def account(self, *options):
        return subprocess.run([self.program, "account", *options, "--database", self.database], check=True,
                              capture_output=True, text=True).stdout.strip()

    def sign_in_elsewhere(self):
        """Another browser, which signs the program in."""
        browser = urllib.request.build_opener(urllib.request.HTTPCookieProcessor())

        def send(path, body=None, kind="application/x-www-form-urlencoded"):
            request = urllib.request.Request(self.url + path, body and body.encode(), {"Content-Type": kind})
            with browser.open(request, timeout=30) as answer:
                return answer.read().decode()

        token = re.search('name="form_token" value="([^"]+)"', send(f"/login/?app_challenge={CHALLENGE}"))[1]
        page = send("/login/", urllib.parse.urlencode({"email": LONG_NAME, "password": PASSWORD, "form_token": token,
                                                       "app_challenge": CHALLENGE}))
        code = re.search("handoff=([A-Za-z0-9_-]+)", page)[1]
        send("/v1/auth/handoff/redeem", json.dumps({"code": code, "code_verifier": VERIFIER}), "application/json")

    def end(self):
        self.process.terminate()
        check(self.process.wait(30) == 0, "the service did not end well")


class Pages:
    number = 0

    def __init__(self, browser, service, output):
        self.browser, self.service, self.output = browser, service, output

    def here(self, name, keyboard=True):
        """Looks at the page that is shown, in each shape, without loading it anew."""
        Pages.number += 1
        for width in (320, 1200):
            for scheme in ("light", "dark"):
                self.browser.shape(width, scheme)
                wrong = self.browser.evaluate(LOOK)
                self.browser.screenshot(os.path.join(self.output, f"{Pages.number:02}-{name}-{width}-{scheme}.png"))
                check(not wrong, f"{name} at {width} pixels, {scheme}: {'; '.join(wrong)}")
        tree = self.browser.tree()
        roles = [role for role, _, _ in tree]
        check(roles.count("main") == 1, f"{name}: {roles.count('main')} main landmarks")
        headings = [(text, level) for role, text, level in tree if role == "heading"]
        check([level for _, level in headings].count(1) == 1 and headings[0][1] == 1, f"{name}: headings {headings}")
        for role, text, _ in tree:
            if role in ("textbox", "button", "link", "DisclosureTriangle", "RootWebArea", "heading"):
                check(text, f"{name}: a {role} has no name")
        check(tree[0][1].endswith("Vellumline") and "·" in tree[0][1], f"{name}: its title is {tree[0][1]!r}")
        if keyboard:
            self.reach_everything(name)
        return tree

    def reach_everything(self, name):
        # Everything that can be operated is reached by the keyboard, and shows it.
        count = self.browser.evaluate("document.querySelectorAll('main a[href],main button,main summary,"
                                      "main input:not([type=hidden])').length")
        # A page that a program opened gets the keyboard only once somebody clicks into it.
        self.browser.press("h1")
        seen = set()
        for _ in range(count + 2):
            self.browser.tab()
            focused = self.browser.evaluate(
                "(() => {const e = document.activeElement; if (e === document.body) return null;"
                " const all = [...document.querySelectorAll('*')];"
                " return [all.indexOf(e), getComputedStyle(e).outlineStyle, parseFloat(getComputedStyle(e).outlineWidth)]})()")
            if focused:
                check(focused[1] != "none" and focused[2] >= 2, f"{name}: the focus is not to be seen")
                seen.add(focused[0])
        hidden = self.browser.evaluate("[...document.querySelectorAll('details:not([open])')].flatMap(d => "
                                       "[...d.querySelectorAll('button,a,input:not([type=hidden])')]).length")
        check(len(seen) == count - hidden, f"{name}: {len(seen)} of {count - hidden} controls are reached by the Tab key")

    def said(self, words):
        until = time.monotonic() + 10
        while words not in self.browser.text():
            check(time.monotonic() < until, f"the page does not say {words!r}: {self.browser.text()[:200]}")
            time.sleep(0.05)

    def open(self, path):
        self.browser.open(self.service.url + path)


def every_page(browser, service, output):
    pages = Pages(browser, service, output)
    browser.scripts(False)
    pages.open(f"/register/?app_challenge={CHALLENGE}")
    tree = pages.here("register")
    check(("textbox", "E-mail address", 0) in tree and ("textbox", "Password", 0) in tree, f"fields: {tree}")
    browser.type("#email", LONG_NAME)
    browser.type("#password", LONG_NAME)
    browser.press("button")
    tree = pages.here("register-refused")
    check(any(role == "alert" for role, _, _ in tree), "what is wrong is no alert")
    browser.type("#password", PASSWORD)
    browser.press("button")
    # The program's sign-in goes on.
    pages.said("asks to use")
    pages.here("confirm")
    service.sign_in_elsewhere()
    pages.open("/account/")
    pages.said("This browser")
    pages.said("The Vellumline program")
    pages.here("account")
    service.account("set", "--account", LONG_NAME, "--plan", "yearly", "--monthly-limit", "500", "--past-due", "--renewal-canceled")
    pages.open("/account/")
    pages.said("The last payment failed.")
    browser.press("details summary")
    browser.type("#old_password", "not the password")
    browser.type("#password", "another long password")
    browser.press("form[action='/account/password'] button")
    pages.said("The present password is not right.")
    pages.here("account-password")
    pages.open("/plan/")
    pages.here("plan-sold")
    pages.open("/account/")
    browser.press("details:last-of-type summary")
    browser.press("form[action='/account/close'] button")
    pages.said("This account is closed.")
    pages.here("account-closed")
    browser.press("form[action='/account/reopen'] button")
    pages.said("Close the account")
    check("closed no" in service.account("show", "--account", LONG_NAME), "the account is not open again")
    browser.press("form[action='/logout'] button")
    pages.said("For your account page.")
    pages.here("login")
    browser.type("#email", LONG_NAME)
    browser.type("#password", "not the password")
    browser.press("form[action='/login/'] button")
    pages.said("is not right")
    pages.here("login-refused")
    link = service.account("reset-password", "--account", LONG_NAME)
    pages.open(link[link.index("/reset/"):])
    pages.here("reset")
    browser.type("#password", NEW_PASSWORD)
    browser.press("button")
    pages.said("Sign in to Vellumline")
    browser.type("#email", LONG_NAME)
    browser.type("#password", NEW_PASSWORD)
    browser.press("form[action='/login/'] button")
    pages.said("Your account")
    pages.open(f"/login/?app_challenge={CHALLENGE}")
    browser.press("form[action='/login/'] button")
    pages.said("You are signed in")
    pages.here("signed-in", keyboard=False)
    check(browser.evaluate("document.activeElement.id") == "open", "the button to the program is not focused")


def pages_that_refuse(browser, service, output):
    pages = Pages(browser, service, output)
    browser.scripts(False)
    pages.open("/reset/?code=used")
    pages.here("link-ended")
    pages.open("/login/?app_challenge=x")
    pages.here("incomplete")


def other_origins(browser, service, _output):
    """A page of another origin, with scripts, in the browser of somebody who is signed in."""
    browser.shape(1200, "light")
    browser.open(service.url + "/login/")
    browser.type("#email", LONG_NAME)
    browser.type("#password", NEW_PASSWORD)
    browser.press("form[action='/login/'] button")
    browser.open(service.url + "/account/")
    check("Your account" in browser.text(), "nobody is signed in")
    token = browser.evaluate("document.querySelector('form[action=\"/account/close\"] [name=form_token]').value")

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            body = b"<!doctype html><title>evil</title><body>evil</body>"
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        # localhost is another site than 127.0.0.1; another port is another origin of the same site.
        for evil in (f"http://localhost:{server.server_port}/", f"http://127.0.0.1:{server.server_port}/"):
            browser.open(evil)
            for path in ("/account/", "/login/", "/plan/", "/v1/account", "/metrics", "/healthz"):
                read = browser.evaluate(f"fetch('{service.url}{path}', {{credentials: 'include'}})"
                                        ".then(answer => answer.text()).catch(() => 'refused')")
                check(read == "refused", f"{evil} reads {path}: {read[:80]}")
                opaque = browser.evaluate(f"fetch('{service.url}{path}', {{credentials: 'include', mode: 'no-cors'}})"
                                          ".then(answer => answer.type).catch(() => 'refused')")
                check(opaque in ("refused", "opaque"), f"{evil} gets {path} as {opaque}")
                framed = browser.evaluate(
                    f"new Promise(done => {{const f = document.createElement('iframe'); f.src = '{service.url}{path}';"
                    " f.onload = () => { let seen = 'closed'; try { seen = f.contentDocument ? 'open' : 'closed' }"
                    " catch (e) {} done(seen) }; document.body.append(f); setTimeout(() => done('closed'), 3000)})")
                check(framed == "closed", f"{evil} frames {path}")
            for body in ("'form_token=" + token + "'", "new URLSearchParams({form_token: '" + token + "'})"):
                browser.evaluate(f"fetch('{service.url}/account/close', {{method: 'POST', mode: 'no-cors', credentials: 'include',"
                                 f" body: {body}}}).then(() => 1).catch(() => 0)")
            asked = browser.evaluate(f"fetch('{service.url}/v1/rewrite', {{method: 'POST', body: '{{}}',"
                                     " headers: {'Content-Type': 'application/json', 'Authorization': 'Bearer x'}})"
                                     ".then(() => 'answered').catch(() => 'refused')")
            check(asked == "refused", f"{evil} may ask for a rewrite")
            # A form that the page sends by itself, with the right token even.
            browser.evaluate("{const f = document.createElement('form'); f.method = 'post';"
                             f" f.action = '{service.url}/account/close'; f.innerHTML = '<input name=form_token value=\"{token}\">';"
                             " document.body.append(f); f.submit()}")
            until = time.monotonic() + 10
            while "/account/close" not in browser.address() and time.monotonic() < until:
                time.sleep(0.05)
            check("Another web site tried" in browser.text() or "too old" in browser.text(),
                  f"{evil} sends a form: {browser.text()[:100]}")
            check("closed no" in service.account("show", "--account", LONG_NAME), f"{evil} closed the account")
            opened = browser.evaluate(f"(() => {{const w = window.open('{service.url}/account/'); try {{ return w && w.document.title }}"
                                      " catch (e) { return null }})()")
            check(not opened, f"{evil} reads a window that it opened")
    finally:
        server.shutdown()
    # The page's own policy, against markup that somebody might get into it.
    browser.open(service.url + "/account/")
    ran = browser.evaluate("new Promise(done => {const s = document.createElement('script'); s.textContent = 'window.ran = 1';"
                           " document.body.append(s); const i = document.createElement('img'); i.setAttribute('onerror', 'window.ran = 1');"
                           " i.src = 'http://localhost:1/'; document.body.append(i); setTimeout(() => done(window.ran || 0), 500)})")
    check(ran == 0, "a script that was put into the page runs")
    read = browser.evaluate("document.cookie")
    check(read == "", f"scripts read the cookie {read}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--output", required=True)
    arguments = parser.parse_args()
    os.makedirs(arguments.output, exist_ok=True)
    program = os.path.join(arguments.build, "VellumlineService", "vellumline-service")
    failed = 0
    with tempfile.TemporaryDirectory(prefix="web-pages-") as folder:
        service = Service(program, folder, ["--accounts", "password", "--registration", "open", "--monthly-checkout",
                                            "https://pay.example.org/m", "--yearly-checkout", "https://pay.example.org/y"])
        try:
            # Chromium's question whether to open the program keeps the keyboard, so each case has its own browser.
            for case in (pages_that_refuse, every_page, other_origins):
                browser = Browser()
                try:
                    case(browser, service, arguments.output)
                    print(f"PASS {case.__name__}", flush=True)
                except Failure as failure:
                    browser.screenshot(os.path.join(arguments.output, f"failed-{case.__name__}.png"))
                    print(f"FAIL {case.__name__}: {failure}", flush=True)
                    failed = 1
                finally:
                    browser.end()
        finally:
            service.end()
    return failed


if __name__ == "__main__":
    sys.exit(main())
