"""A server in the place of the correction service, for tests and benchmarks that decide what it answers, and when."""

import http.server
import json
import socket
import sys
import threading

ACCOUNT = {"plan": "paid", "rewritesUsed": 3, "freeRewrites": 30}
RENEWED = {"access_token": "new", "refresh_token": "newer", "user_id": "1"}


class Request(http.server.BaseHTTPRequestHandler):
    """One connection. What a service does not do as usual, it overrides."""

    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def log_message(self, *_):
        pass

    def reply(self, body, status=200, length=None):
        """Bytes as they are, anything else as JSON; `length`: what is said about it, where that is not so."""
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.wfile.write(b"HTTP/1.1 %d Status\r\nContent-Type: application/json\r\nContent-Length: %d\r\n\r\n%s" %
                         (status, len(data) if length is None else length, data))
        if length is not None and length != len(data):
            self.close_connection = True

    def do_GET(self):
        self.account()

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        if self.path == "/v1/rewrite":
            self.rewrite(json.loads(body)["text"])
        else:
            self.renew(body)

    def account(self):
        self.reply(ACCOUNT)

    def rewrite(self, text):
        raise NotImplementedError

    def renew(self, body):
        self.reply(RENEWED)


class StandIn(http.server.ThreadingHTTPServer):
    """Serves from its making until it is stopped; then its connections are closed too."""

    def __init__(self, request, port=0):
        super().__init__(("127.0.0.1", port), request)
        self.origin = f"http://127.0.0.1:{self.server_port}"
        self.connections = []
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    def get_request(self):
        connection, address = super().get_request()
        self.connections.append(connection)
        return connection, address

    def handle_error(self, request, client_address):
        # Who asked is gone, or was sent away.
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)

    def stop(self):
        self.shutdown()
        self.server_close()
        for connection in self.connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
