"""What an ordinary user has when a new version is installed over an earlier one, and finds afterwards. scripts/check-packages.sh
runs it, in a fresh Debian, inside a desktop session of its own.

    check-upgrade.py before | after      before: with the earlier version; after: with the new one
"""

import http.client
import json
import os
import re
import signal
import subprocess
import sys
import time
import urllib.parse

# The user's own home, not the one of the desktop session, which is made anew each time.
HOME = os.path.expanduser("~" + os.environ["USER"])
for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"):
    del os.environ[name]
os.environ["HOME"] = HOME

CONFIGURATION = os.path.join(HOME, ".config/vellumline")
SETTINGS = "[General]\nvellumline.hotkey.keyCode=5\nvellumline.hotkey.keyLabel=G\nvellumline.hotkey.modifiers=6144\n" \
           "vellumline.onboardingDone=true\nvellumline.pasteDelayMs=900\n"
SESSION = os.path.join(HOME, "session.json")
CHALLENGE = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"
VERIFIER = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"
WRONG = "We deployed it with terraphorm."


def send(method, path, body=None, **headers):
    connection = http.client.HTTPConnection("127.0.0.1", 8642, timeout=30)
    try:
        connection.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
        answer = connection.getresponse()
        text = answer.read().decode()
        assert answer.status in (200, 303), f"{path}: {answer.status} {text}"
        return text
    finally:
        connection.close()


def form(path, **fields):
    return send("POST", path, urllib.parse.urlencode(fields), Content_Type="application/x-www-form-urlencoded")


class Service:
    def __enter__(self):
        self.process = subprocess.Popen(["vellumline-service"], stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        assert "ready on" in line, line
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(30) == 0, "the service does not end well"


def output(*command, given=None):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, input=given, timeout=60).stdout.strip()


def rewrite(token):
    text = send("POST", "/v1/rewrite", json.dumps({"text": WRONG}), Content_Type="application/json", Authorization="Bearer " + token)
    # The user's own word.
    assert json.loads(text)["text"] == WRONG, text


def settings_as_the_program_sees_them():
    program = subprocess.Popen(["vellumline"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deadline = time.monotonic() + 30
    while True:
        asked = subprocess.run(["vellumline", "status", "--json"], capture_output=True, text=True, check=False, timeout=30)
        if asked.returncode == 0:
            break
        assert time.monotonic() < deadline and program.poll() is None, asked.stderr
        time.sleep(0.1)
    output("vellumline", "quit")
    assert program.wait(30) == 0
    with open(os.path.join(CONFIGURATION, "vellumline.conf"), encoding="utf-8") as file:
        text = file.read()
    assert sorted(text.split()) == sorted(SETTINGS.split()), f"the settings are now {text}"
    return json.loads(asked.stdout)


def before():
    os.makedirs(CONFIGURATION)
    with open(os.path.join(CONFIGURATION, "vellumline.conf"), "w", encoding="utf-8") as file:
        file.write(SETTINGS)
    wanted = WRONG.replace("terraphorm", "terraform")
    assert output("vellumline-correct", given=WRONG) == wanted
    with open(os.path.join(CONFIGURATION, "dictionary.txt"), "w", encoding="utf-8") as file:
        file.write("# words of our team\nterraphorm\n")
    with Service():
        page = send("GET", f"/login/?app_challenge={CHALLENGE}")
        token = re.search('name="form_token" value="([^"]+)"', page)[1]
        code = re.search("handoff=([A-Za-z0-9_-]+)", form("/login/", form_token=token, app_challenge=CHALLENGE))[1]
        session = json.loads(send("POST", "/v1/auth/handoff/redeem", json.dumps({"code": code, "code_verifier": VERIFIER}),
                                  Content_Type="application/json"))
        for _ in range(3):
            rewrite(session["access_token"])
    output("vellumline-service", "account", "set", "--plan", "free", "--free-rewrites", "40")
    output("vellumline-service", "account", "create", "--email", "ada@example.org", "--plan", "yearly", "--monthly-limit", "2000")
    session["accounts"] = output("vellumline-service", "account", "list")
    session["account"] = output("vellumline-service", "account", "show")
    session["shortcut"] = settings_as_the_program_sees_them()["shortcut"]
    session["version"] = output("vellumline", "--version")
    with open(SESSION, "w", encoding="utf-8") as file:
        json.dump(session, file)
    print(f"         {session['version']}: shortcut {session['shortcut']}, "
          f"{', '.join(line for line in session['account'].splitlines() if line.startswith(('used', 'plan', 'free')))}")


def after():
    with open(SESSION, encoding="utf-8") as file:
        session = json.load(file)
    assert output("vellumline", "--version") != session["version"]
    assert output("vellumline-service", "account", "list") == session["accounts"]
    assert output("vellumline-service", "account", "show") == session["account"]
    assert "used 3\n" in session["account"], session["account"]
    assert output("vellumline-correct", given=WRONG) == WRONG, "the user's own word is gone"
    shortcut = settings_as_the_program_sees_them()["shortcut"]
    assert shortcut == session["shortcut"] and "G" in shortcut, shortcut
    with Service():
        # The session of the earlier version goes on.
        renewed = json.loads(form("/auth/oauth/token", grant_type="refresh_token", refresh_token=session["refresh_token"]))
        rewrite(renewed["access_token"])
        account = json.loads(send("GET", "/v1/account", Authorization="Bearer " + renewed["access_token"]))
    assert account["rewritesUsed"] == 4, account
    for path, mode in (("", 0o700), ("/service.sqlite", 0o600)):
        assert os.stat(HOME + "/.local/share/vellumline-service" + path).st_mode & 0o777 == mode
    print(f"         {output('vellumline', '--version')}: shortcut {shortcut}, a rewrite more: {account['rewritesUsed']}")


{"before": before, "after": after}[sys.argv[1]]()
