"""What scripts/check-units.sh runs as an ordinary user, in a place where that user has a systemd of its own."""

import ctypes
import http.client
import json
import mmap
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
import urllib.parse

HOME = os.environ["HOME"]
SERVICE = "vellumline-service.service"
SOCKET = "vellumline-service.socket"
PORT = 8642
CHALLENGE = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"
VERIFIER = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"
CLONE_NEWUSER = 0x10000000
LANDLOCK_CREATE_RULESET = 444


def attempts():
    """What a program under the service's settings can do, by name: "yes", or why not."""
    library = ctypes.CDLL(None, use_errno=True)

    def system(result):
        if result == -1:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))

    def user_namespace():
        # In a process of its own, which is not to be the one that goes on in the new name space.
        child = os.fork()
        if child == 0:
            os._exit(0 if library.unshare(CLONE_NEWUSER) == 0 else ctypes.get_errno())
        code = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        if code:
            raise OSError(code, os.strerror(code))

    def setuid_file():
        path = os.path.join(HOME, "setuid")
        with open(path, "w", encoding="ascii"):
            os.chmod(path, 0o4700)

    tried = {
        "map memory that is writable and executable":
            lambda: mmap.mmap(-1, 4096, prot=mmap.PROT_READ | mmap.PROT_WRITE | mmap.PROT_EXEC),
        "open an IPv4 socket": lambda: socket.socket(socket.AF_INET).close(),
        "open a packet socket": lambda: socket.socket(socket.AF_PACKET, socket.SOCK_RAW).close(),
        "make a user name space": user_namespace,
        "make a file setuid": setuid_file,
        "change its personality": lambda: system(library.personality(0x0008)),
        "change its priority": lambda: os.nice(1),
        "write to a file of the system": lambda: open("/etc/hostname", "a", encoding="ascii").close(),
    }
    found = {}
    for name, attempt in tried.items():
        try:
            attempt()
            found[name] = "yes"
        except OSError as error:
            found[name] = os.strerror(error.errno)
    with open("/proc/self/status", encoding="ascii") as status:
        fields = dict(line.rstrip("\n").split(":\t", 1) for line in status if ":\t" in line)
    found["gain privileges"] = "no" if fields["NoNewPrivs"] == "1" else "yes"
    found["have its calls filtered"] = "yes" if fields["Seccomp"] == "2" else "no"
    found["mode of new files"] = oct(0o666 & ~os.umask(0))
    return found


if sys.argv[1:2] == ["--attempts"]:
    with open(sys.argv[2], "w", encoding="utf-8") as output:
        json.dump(attempts(), output)
    sys.exit(0)


def run(*command, accepted=(0,)):
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)
    assert done.returncode in accepted, f"{' '.join(command)}: {done.returncode}: {done.stdout}{done.stderr}"
    return done.stdout.strip()


def control(*arguments, **options):
    return run("systemctl", "--user", *arguments, **options)


def value(unit, name):
    return control("show", "--value", "-p", name, unit)


def until(condition, what, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"{what}: not within {seconds} s"
        time.sleep(0.05)


def answer(path="/readyz"):
    connection = http.client.HTTPConnection("127.0.0.1", PORT, timeout=20)
    try:
        connection.request("GET", path)
        return connection.getresponse().status
    finally:
        connection.close()


def send(method, path, body=None, kind="application/json", token=None):
    connection = http.client.HTTPConnection("127.0.0.1", PORT, timeout=20)
    try:
        connection.request(method, path, body, {"Content-Type": kind, **({"Authorization": "Bearer " + token} if token else {})})
        said = connection.getresponse()
        return said.status, said.read().decode()
    finally:
        connection.close()


def refused():
    try:
        socket.create_connection(("127.0.0.1", PORT), 5).close()
    except ConnectionRefusedError:
        return True
    return False


def running():
    return int(value(SERVICE, "MainPID"))


def the_units_are_known_and_nothing_runs():
    if "SYSTEMD_UNIT_PATH" in os.environ:
        assert refused(), "something listens before the socket is started"
        control("start", SOCKET)
    # A package's socket is enabled: then the manager has started it with itself.
    assert value(SOCKET, "ActiveState") == "active", control("status", SOCKET, accepted=range(5))
    assert value(SERVICE, "ActiveState") == "inactive" and running() == 0, "the service runs before it is needed"


def the_first_connection_starts_the_service():
    begin = time.monotonic()
    assert answer() == 200
    print(f"         answered after {time.monotonic() - begin:.2f} s")
    assert value(SERVICE, "ActiveState") == "active" and running() > 0
    data = os.path.join(HOME, ".local/share/vellumline-service")
    assert os.stat(data).st_mode & 0o777 == 0o700 and os.stat(data + "/service.sqlite").st_mode & 0o777 == 0o600
    written = sorted(os.path.relpath(os.path.join(where, name), HOME) for where, _, names in os.walk(HOME) for name in names)
    strange = [name for name in written if not name.startswith((".local/share/vellumline-service/", ".config/systemd/"))]
    assert not strange, f"written elsewhere: {strange}"


def its_settings_are_in_force():
    with open(f"/proc/{running()}/status", encoding="ascii") as status:
        text = status.read()
    assert "NoNewPrivs:\t1\n" in text and "Seccomp:\t2\n" in text, text
    limit = value(SERVICE, "MemoryMax")
    assert limit == str(1 << 30), limit
    # The kernel enforces it where the manager was given the controller of memory.
    enforced = f"/sys/fs/cgroup{value(SERVICE, 'ControlGroup')}/memory.max"
    if os.path.exists(enforced):
        with open(enforced, encoding="ascii") as file:
            assert file.read().strip() == limit
        print("         the limit of memory is the kernel's")
    else:
        print("         no controller of memory here: that its limit is kept was not seen")
    # It counts a service of any user manager as root's, which makes 0.4 of it.
    rating = run("systemd-analyze", "--user", "security", "--no-pager", "--threshold=65", SERVICE)
    print("        ", rating.splitlines()[-1].strip(" →"))


def what_the_sandbox_is_for_fails():
    """The service's own settings around another program, and the same program without them."""
    drop_in = os.path.join(os.environ["XDG_RUNTIME_DIR"], "systemd/user", SERVICE + ".d")
    os.makedirs(drop_in)
    program = f"/usr/bin/python3 {os.path.abspath(__file__)} --attempts"
    within, without = os.path.join(HOME, "within.json"), os.path.join(HOME, "without.json")
    control("stop", SERVICE)
    with open(drop_in + "/attempts.conf", "w", encoding="utf-8") as file:
        file.write(f"[Service]\nType=oneshot\nRestart=no\nExecStart=\nExecStart={program} {within}\n")
    with open(os.path.dirname(drop_in) + "/attempts.service", "w", encoding="utf-8") as file:
        file.write(f"[Service]\nType=oneshot\nExecStart={program} {without}\n")
    control("daemon-reload")
    control("start", SERVICE)
    control("start", "attempts.service")
    os.remove(drop_in + "/attempts.conf")
    control("daemon-reload")
    with open(within, encoding="utf-8") as one, open(without, encoding="utf-8") as two:
        within, without = json.load(one), json.load(two)
    for name, found in within.items():
        print(f"         {name}: {found}; without the unit's settings: {without[name]}")
    denied = os.strerror(1)
    assert within == {
        "map memory that is writable and executable": denied,
        "open an IPv4 socket": "yes",
        "open a packet socket": "Address family not supported by protocol",
        "make a user name space": denied,
        "make a file setuid": denied,
        "change its personality": denied,
        "change its priority": denied,
        "write to a file of the system": "Permission denied",
        "gain privileges": "no",
        "have its calls filtered": "yes",
        "mode of new files": "0o600",
    }
    # Else it would not be the settings that forbid it. A kernel may forbid the name space to everybody.
    for name in ("map memory that is writable and executable", "make a file setuid", "change its personality", "change its priority",
                 "gain privileges"):
        assert without[name] == "yes", name
    assert without["have its calls filtered"] == "no"


def it_writes_to_no_other_folder():
    """Another folder is put in the place of its own: its next connection to the database may read there, and not write."""
    if ctypes.CDLL(None).syscall(LANDLOCK_CREATE_RULESET, None, 0, 1) < 1:
        print("         this kernel has no Landlock: not tried")
        return
    assert answer() == 200
    page = send("GET", f"/login/?app_challenge={CHALLENGE}")[1]
    fields = {"form_token": re.search('name="form_token" value="([^"]+)"', page)[1], "app_challenge": CHALLENGE}
    page = send("POST", "/login/", urllib.parse.urlencode(fields), "application/x-www-form-urlencoded")[1]
    code = re.search("handoff=([A-Za-z0-9_-]+)", page)[1]
    token = json.loads(send("POST", "/v1/auth/handoff/redeem", json.dumps({"code": code, "code_verifier": VERIFIER}))[1])["access_token"]

    own, other = os.path.join(HOME, ".local/share/vellumline-service"), os.path.join(HOME, "other")
    shutil.copytree(own, other)
    os.rename(own, own + ".away")
    os.symlink(other, own)
    try:
        # The first rewrite has a worker of its own, and that a connection.
        status, text = send("POST", "/v1/rewrite", json.dumps({"text": "a text"}), token=token)
    finally:
        os.remove(own)
        os.rename(own + ".away", own)
    print(f"         in another folder: {status} {text.strip()}")
    assert status == 503, "it wrote to another folder"
    control("restart", SERVICE)
    status, text = send("POST", "/v1/rewrite", json.dumps({"text": "a text"}), token=token)
    assert status == 200, f"{status} {text}"


def killed_it_comes_back():
    assert answer() == 200
    before = running()
    os.kill(before, signal.SIGKILL)
    until(lambda: running() not in (0, before), "a service that was killed")
    assert answer() == 200 and value(SERVICE, "NRestarts") == "1"


def stopped_it_ends_well_and_the_next_connection_starts_it():
    control("stop", SERVICE)
    assert value(SERVICE, "Result") == "success" and running() == 0
    assert value(SOCKET, "ActiveState") == "active"
    assert answer() == 200 and running() > 0


def without_the_socket_nobody_answers():
    control("stop", SOCKET)
    until(lambda: value(SERVICE, "ActiveState") == "inactive", "a service whose socket was stopped")
    assert refused()


def without_a_display_the_program_is_not_started_again_and_again():
    control("start", "vellumline.service", accepted=(1,))
    until(lambda: value("vellumline.service", "ActiveState") == "failed", "a program without a display")
    assert value("vellumline.service", "ExecMainStatus") == "69" and value("vellumline.service", "NRestarts") == "0"


with open(os.path.join(os.environ["XDG_RUNTIME_DIR"], "manager.log"), "w", encoding="utf-8") as log:
    manager = subprocess.Popen(["/lib/systemd/systemd", "--user", "--log-target=console"], stdout=log, stderr=log)
failures = 0
try:
    until(lambda: subprocess.run(["systemctl", "--user", "is-system-running"], capture_output=True, text=True,
                                 check=False).stdout.strip() in ("running", "degraded"), "the user manager")
    print(run("systemctl", "--version").splitlines()[0])
    for case in (the_units_are_known_and_nothing_runs, the_first_connection_starts_the_service, its_settings_are_in_force,
                 what_the_sandbox_is_for_fails, it_writes_to_no_other_folder, killed_it_comes_back, stopped_it_ends_well_and_the_next_connection_starts_it,
                 without_the_socket_nobody_answers, without_a_display_the_program_is_not_started_again_and_again):
        try:
            case()
            print("ok      ", case.__name__.replace("_", " "), flush=True)
        except (AssertionError, OSError, subprocess.SubprocessError) as error:
            print("FAILED  ", case.__name__.replace("_", " "), error, flush=True)
            failures += 1
finally:
    manager.terminate()
    manager.wait(60)
if failures:
    with open(log.name, encoding="utf-8") as said:
        print(said.read()[-3000:])
sys.exit(1 if failures else 0)
