#!/usr/bin/python3
"""The team's set-up as docs/service.md shows it: nginx does TLS in front of two processes on one database. Its configuration and
the service's are taken out of the document; only the database and the certificate's place are the test's own. It all happens
in a network of its own, so that the ports are the document's. Exit status 77: it cannot be tried here.

    behind_nginx.py PROGRAM [STOPS]      STOPS: how often a process is stopped under load, 2 unless given
"""

import http.client
import json
import os
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ENTERED = "--entered"
ARGUMENTS = [each for each in sys.argv[1:] if each != ENTERED]
PROGRAM = ARGUMENTS[0]
STOPS = int(ARGUMENTS[1]) if len(ARGUMENTS) > 1 else 2
NAME = "corrections.example.org"
CHALLENGE = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"
VERIFIER = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"
PASSWORD = "correct horse battery"
# Not where the proxy runs: what the service calls the client's address is not the proxy's.
CLIENT, STRANGER = "127.0.0.7", "127.0.0.8"


def cannot(why):
    print(f"{why}: not tried")
    sys.exit(77)


def enter_a_network_of_its_own():
    if ENTERED in sys.argv:
        return
    namespace = ["unshare", "--net"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "--net"]
    if subprocess.run([*namespace, "ip", "link", "set", "lo", "up"], stderr=subprocess.DEVNULL, check=False).returncode:
        cannot("The kernel gives no network of its own")
    os.execvp(namespace[0], [*namespace, "sh", "-c", 'ip link set lo up && exec "$@"', "sh", sys.executable, *sys.argv,
                             ENTERED])


def block(beginning):
    """The indented block of the document that begins with this line."""
    with open(os.path.join(ROOT, "docs/service.md"), encoding="utf-8") as file:
        found = re.search(rf"^    {re.escape(beginning)}.*\n((?:    .*\n)+)", file.read(), re.MULTILINE)
    assert found, f"docs/service.md has no block {beginning!r}"
    return re.sub(r"^    ", "", found[1], flags=re.MULTILINE)


def replaced(text, pattern, new):
    text, count = re.subn(pattern, new, text, flags=re.MULTILINE)
    assert count == 1, f"docs/service.md: {pattern!r} is there {count} times"
    return text


class Connection(http.client.HTTPSConnection):
    """To the proxy, by its public name, from an address of its own."""

    def __init__(self, trusted, source):
        super().__init__(NAME, timeout=30, context=trusted)
        self.source, self.trusted = source, trusted

    def connect(self):
        plain = socket.create_connection(("127.0.0.1", 443), 30, source_address=(self.source, 0))
        self.sock = self.trusted.wrap_socket(plain, server_hostname=NAME)


class Browser:
    """Cookies, and forms with their tokens."""

    def __init__(self, site, source, headers=()):
        self.site, self.source, self.headers, self.cookies = site, source, dict(headers), {}

    def send(self, method, path, body=None, headers=()):
        connection = Connection(self.site.trusted, self.source)
        cookies = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        try:
            connection.request(method, path, body, {**self.headers, **dict(headers), **({"Cookie": cookies} if cookies else {})})
            answer = connection.getresponse()
            text = answer.read().decode()
        finally:
            connection.close()
        for line in answer.headers.get_all("Set-Cookie") or []:
            name, value = line.split(";")[0].split("=", 1)
            assert name.startswith("__Host-") and "; Secure" in line and "; HttpOnly" in line, line
            self.cookies[name] = value
        return answer, text

    def submit(self, page, action, **fields):
        _, text = self.send("GET", page)
        fields["form_token"] = re.search('name="form_token" value="([^"]+)"', text)[1]
        return self.send("POST", action, urllib.parse.urlencode(fields),
                         {"Content-Type": "application/x-www-form-urlencoded", "Origin": f"https://{NAME}"})


class Site:
    def __init__(self, folder):
        self.folder = folder
        certificate, key = os.path.join(folder, "certificate.pem"), os.path.join(folder, "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
                        "-subj", f"/CN={NAME}", "-addext", f"subjectAltName=DNS:{NAME}", "-keyout", key, "-out", certificate],
                       check=True, capture_output=True)
        self.trusted = ssl.create_default_context(cafile=certificate)

        self.settings = os.path.join(folder, "vellumline-service.conf")
        text = block("# /etc/vellumline-service.conf")
        with open(self.settings, "w", encoding="utf-8") as file:
            file.write(replaced(text, "^database = .*$", f"database = sqlite:{folder}/service.sqlite"))

        text = replaced(block("# nginx"), "ssl_certificate .*;", f"ssl_certificate {certificate};")
        text = replaced(text, "ssl_certificate_key .*;", f"ssl_certificate_key {key};")
        own = "\n".join(f"{kind}_temp_path {folder}/{kind};" for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        configuration = os.path.join(folder, "nginx.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            # Its workers would be another user's, who cannot reach the folder.
            file.write(f"daemon off;\npid {folder}/nginx.pid;\n{'user root;' if os.geteuid() == 0 else ''}\n"
                       f"events {{}}\nhttp {{\naccess_log off;\n{own}\n{text}\n}}\n")
        self.processes = {port: self.start(port) for port in (8642, 8643)}
        self.errors = os.path.join(folder, "nginx.log")
        with open(self.errors, "wb") as log:
            self.nginx = subprocess.Popen([nginx, "-e", "stderr", "-p", folder, "-c", configuration], stderr=log)
        deadline = time.monotonic() + 20
        while True:
            try:
                socket.create_connection(("127.0.0.1", 443), 1).close()
                break
            except ConnectionRefusedError:
                assert self.nginx.poll() is None and time.monotonic() < deadline, "nginx does not start"
                time.sleep(0.02)

    def start(self, port):
        log = os.path.join(self.folder, f"{port}.log")
        arguments = [] if port == 8642 else ["--port", str(port)]
        with open(log, "ab") as said:
            process = subprocess.Popen([PROGRAM, "--config", self.settings, *arguments], stdout=subprocess.PIPE, stderr=said)
        if b"ready on" not in process.stdout.readline():
            with open(log, encoding="utf-8") as said:
                raise AssertionError(f"the service on port {port} does not start: {said.read()}")
        return process

    def requests(self, port):
        """How many rewrites this process has answered, as it says itself."""
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
        connection.request("GET", "/metrics")
        text = connection.getresponse().read().decode()
        connection.close()
        return sum(int(float(count)) for count in re.findall(r'^\w*requests_total\{[^}]*"/v1/rewrite"[^}]*\} (\S+)$', text, re.MULTILINE))

    def end(self, port, number=signal.SIGTERM):
        self.processes[port].send_signal(number)
        return self.processes[port].wait(30)

    def close(self):
        for process in (self.nginx, *self.processes.values()):
            if process.poll() is None:
                process.terminate()
                process.wait(30)


def rewrite(connection, token, text="i has went to the shop yesterday and buyed three apple."):
    connection.request("POST", "/v1/rewrite", json.dumps({"text": text}),
                       {"Content-Type": "application/json", "Authorization": "Bearer " + token})
    answer = connection.getresponse()
    return answer.status, answer.read().decode()


def the_links_are_those_of_the_public_name(site):
    link = subprocess.run([PROGRAM, "account", "invite", "--config", site.settings], check=True, capture_output=True,
                          text=True).stdout.strip()
    assert link.startswith(f"https://{NAME}/register/?invitation="), link
    site.invitation = link[len(f"https://{NAME}"):]


def registering_and_signing_in_works_and_its_cookies_are_for_https_only(site):
    ada = Browser(site, CLIENT)
    answer, _ = ada.submit(site.invitation, "/register/", email="ada@example.org", password=PASSWORD,
                           invitation=site.invitation.split("=")[1])
    assert answer.status in (200, 302, 303), answer.status
    assert answer.headers["Strict-Transport-Security"] == "max-age=31536000", "the browser is not told to stay with HTTPS"
    elsewhere = Browser(site, CLIENT)
    _, page = elsewhere.submit(f"/login/?app_challenge={CHALLENGE}", "/login/", email="ada@example.org", password=PASSWORD,
                               app_challenge=CHALLENGE)
    assert elsewhere.cookies, "no cookie came"
    code = re.search("handoff=([A-Za-z0-9_-]+)", page)[1]
    answer, text = elsewhere.send("POST", "/v1/auth/handoff/redeem", json.dumps({"code": code, "code_verifier": VERIFIER}),
                                  {"Content-Type": "application/json"})
    assert answer.status == 200, text
    site.token = json.loads(text)["access_token"]


def rewrites_are_shared_out_and_counted_together(site):
    connection = Connection(site.trusted, CLIENT)
    for _ in range(10):
        status, text = rewrite(connection, site.token)
        assert (status, json.loads(text)) == (200, {"text": "I went to the shop yesterday and bought three apples."}), f"{status} {text}"
    connection.close()
    shares = [site.requests(port) for port in (8642, 8643)]
    assert sum(shares) == 10 and min(shares) >= 4, f"shared out as {shares}"
    answer, text = Browser(site, CLIENT).send("GET", "/v1/account", headers={"Authorization": "Bearer " + site.token})
    assert answer.status == 200 and '"rewritesUsed":10' in text.replace(" ", ""), text


def wrong_passwords_count_by_the_clients_own_address(site):
    stranger = Browser(site, STRANGER)
    found = [stranger.submit("/login/", "/login/", email="ada@example.org", password="wrong password")[0].status for _ in range(6)]
    assert found == [401] * 5 + [429], found
    # What a client says of itself changes nothing, and nobody else behind the proxy is shut out.
    liar = Browser(site, STRANGER, {"X-Forwarded-For": "192.0.2.1", "Forwarded": "for=192.0.2.1", "X-Real-IP": "192.0.2.1"})
    answer, _ = liar.submit("/login/", "/login/", email="ada@example.org", password=PASSWORD)
    assert answer.status == 429, answer.status
    answer, _ = Browser(site, CLIENT).submit("/login/", "/login/", email="ada@example.org", password=PASSWORD)
    assert answer.status == 303, answer.status


def what_is_too_large_or_not_for_everybody_is_refused(site):
    browser = Browser(site, CLIENT)
    json_type = {"Content-Type": "application/json", "Authorization": "Bearer " + site.token}
    answer, _ = browser.send("POST", "/v1/rewrite", b"x" * (256 * 1024 + 1), json_type)
    assert answer.status == 413, answer.status
    # As large as is allowed, the service itself looks at it.
    answer, text = browser.send("POST", "/v1/rewrite", b" " * (256 * 1024), json_type)
    assert answer.status == 400 and "text is needed" in text, f"{answer.status} {text}"
    assert browser.send("GET", "/metrics")[0].status == 404
    assert browser.send("GET", "/", headers={"Host": "elsewhere.example.org"})[0].status == 421


def a_process_that_ends_is_not_missed(site):
    """Rewrites on four kept connections all the time, while the processes in turn are told to end and started again."""
    found, over = [], threading.Event()

    def client():
        connection = Connection(site.trusted, CLIENT)
        while not over.is_set():
            found.append(rewrite(connection, site.token)[0])
        connection.close()

    subprocess.run([PROGRAM, "account", "set", "--config", site.settings, "--account", "ada@example.org", "--plan", "yearly",
                    "--minute-limit", "0"], check=True, stdout=subprocess.DEVNULL)
    threads = [threading.Thread(target=client) for _ in range(4)]
    for thread in threads:
        thread.start()
    try:
        for stop in range(STOPS):
            port = (8642, 8643)[stop % 2]
            time.sleep(0.3)
            assert site.end(port) == 0
            count = len(found)
            time.sleep(0.3)
            assert len(found) > count, "the other process does not answer"
            site.processes[port] = site.start(port)
    finally:
        over.set()
        for thread in threads:
            thread.join()
    wrong = [status for status in found if status != 200]
    print(f"         {STOPS} stops, {len(found)} rewrites, {len(wrong)} of them without an answer {sorted(set(wrong))}")
    # A proxy can use a connection in the very moment in which it is closed, and does not send the request again.
    assert len(wrong) * 100 <= len(found), sorted(set(wrong))


def a_process_that_is_killed_leaves_the_other_one(site):
    site.end(8643, signal.SIGKILL)
    connection = Connection(site.trusted, CLIENT)
    for _ in range(10):
        status, text = rewrite(connection, site.token)
        assert status == 200, f"{status} {text}"
    connection.close()


enter_a_network_of_its_own()
nginx = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin")
if not nginx:
    cannot("nginx is not installed (scripts/packages.sh proxy)")
failures = 0
with tempfile.TemporaryDirectory(prefix="behind-nginx-") as own_folder:
    here = Site(own_folder)
    try:
        for case in (the_links_are_those_of_the_public_name, registering_and_signing_in_works_and_its_cookies_are_for_https_only,
                     rewrites_are_shared_out_and_counted_together, wrong_passwords_count_by_the_clients_own_address,
                     what_is_too_large_or_not_for_everybody_is_refused, a_process_that_ends_is_not_missed,
                     a_process_that_is_killed_leaves_the_other_one):
            case(here)
            print("ok      ", case.__name__.replace("_", " "), flush=True)
    except (AssertionError, OSError, http.client.HTTPException, subprocess.SubprocessError) as error:
        print("FAILED  ", case.__name__.replace("_", " "), repr(error), flush=True)
        failures = 1
    finally:
        here.close()
    with open(here.errors, encoding="utf-8") as said:
        text = said.read()
    # Its own words about what it met, for whoever looks into a failure.
    if failures:
        print("\n".join([line for line in text.splitlines() if "Connection refused" not in line][-20:]))
sys.exit(failures)
