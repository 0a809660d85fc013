#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""serve.py FOLDER: give the page beside this file to a browser on this machine (port 8000), keep the
picture that it sends as FOLDER/browser.png, and end with its result on stdout."""
import http.server
import pathlib
import sys

folder = pathlib.Path(sys.argv[1])
page = pathlib.Path(__file__).with_name('page.html')


class Server(http.server.HTTPServer):
    """Serves until there is a result."""
    result = None


class Handler(http.server.BaseHTTPRequestHandler):
    """The page, and what it has to say."""

    def answer(self, status, body=b'', kind='text/plain'):
        self.send_response(status)
        self.send_header('Content-Type', kind)
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        if self.path.split('?')[0] == '/':
            self.answer(200, page.read_bytes(), 'text/html')
        else:
            self.answer(404)

    def do_POST(self):
        body = self.rfile.read(int(self.headers['Content-Length']))
        if self.path == '/picture':
            (folder / 'browser.png').write_bytes(body)
        else:
            self.server.result = body.decode()
        self.answer(200)

    def log_message(self, *arguments):
        pass


server = Server(('127.0.0.1', 8000), Handler)
while server.result is None:
    server.handle_request()
print(server.result)
