"""vellumline-service on a socket that it is started with, as systemd does it on the first connection."""

import os
import signal
import socket
import sys
import tempfile
import time

PROGRAM = sys.argv[1]


def start(sockets, own=True, arguments=()):
    """Starts the service with these sockets as its descriptors 3, 4, …; its process."""
    first = 3
    home = tempfile.mkdtemp()
    reader, writer = os.pipe()
    pid = os.fork()
    if pid == 0:
        os.dup2(writer, 1)
        os.dup2(writer, 2)
        # Out of the way of the numbers that they are to have.
        high = [os.dup2(each.fileno(), 100 + index) for index, each in enumerate(sockets)]
        for index, descriptor in enumerate(high):
            os.dup2(descriptor, first + index, inheritable=True)
        os.closerange(first + len(sockets), 256)
        variables = {**os.environ, "XDG_DATA_HOME": home, "XDG_CONFIG_HOME": home}
        if sockets:
            variables["LISTEN_FDS"] = str(len(sockets))
            variables["LISTEN_PID"] = str(os.getpid() if own else 1)
        os.execve(PROGRAM, [PROGRAM, *arguments], variables)
    os.close(writer)
    return pid, os.fdopen(reader)


def listening(address="127.0.0.1"):
    made = socket.socket()
    made.bind((address, 0))
    made.listen()
    return made


def ended(pid, seconds=10):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        done, status = os.waitpid(pid, os.WNOHANG)
        if done:
            return os.waitstatus_to_exitcode(status)
        time.sleep(0.02)
    os.kill(pid, signal.SIGKILL)
    os.waitpid(pid, 0)
    raise AssertionError("it does not end")


def a_connection_that_came_before_the_service_is_answered():
    sock = listening()
    port = sock.getsockname()[1]
    early = socket.create_connection(("127.0.0.1", port))
    early.sendall(f"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n\r\n".encode())
    pid, output = start([sock])
    line = output.readline()
    assert line == f"vellumline-service ready on http://127.0.0.1:{port}\n", line
    early.settimeout(10)
    assert early.recv(100).startswith(b"HTTP/1.1 200 ")
    os.kill(pid, signal.SIGTERM)
    assert ended(pid) == 0
    # The socket is whoever's it was: the next connection waits for the next service.
    late = socket.create_connection(("127.0.0.1", port))
    pid, output = start([sock])
    assert "ready" in output.readline()
    late.sendall(f"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n\r\n".encode())
    late.settimeout(10)
    assert late.recv(100).startswith(b"HTTP/1.1 200 ")
    os.kill(pid, signal.SIGTERM)
    assert ended(pid) == 0


def a_socket_for_another_process_is_not_taken():
    sock = listening()
    pid, output = start([sock], own=False, arguments=("--port", "0"))
    line = output.readline()
    assert "ready" in line and str(sock.getsockname()[1]) not in line, line
    os.kill(pid, signal.SIGTERM)
    assert ended(pid) == 0


def a_socket_at_another_address_is_refused():
    pid, output = start([listening("127.0.0.2")])
    assert "--listen" in output.readline()
    assert ended(pid) == 2
    sock = listening("127.0.0.2")
    pid, output = start([sock], arguments=("--listen", "127.0.0.2"))
    assert "ready on http://127.0.0.2" in output.readline()
    os.kill(pid, signal.SIGTERM)
    assert ended(pid) == 0


def two_sockets_are_refused():
    pid, output = start([listening(), listening()])
    assert "2 sockets" in output.readline()
    assert ended(pid) == 2


for case in (a_connection_that_came_before_the_service_is_answered, a_socket_for_another_process_is_not_taken,
             a_socket_at_another_address_is_refused, two_sockets_are_refused):
    case()
    print("ok  ", case.__name__.replace("_", " "))
