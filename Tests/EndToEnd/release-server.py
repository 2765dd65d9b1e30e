#!/usr/bin/env python3
"""Serves the files of a folder over HTTP, or over HTTPS with a certificate and its key: FOLDER [CERTIFICATE KEY].

If a pipe called NAME.hold lies beside a file NAME, the second half of the file is sent only after another program has
opened that pipe for writing, and closed it again.
"""
import functools
import http.server
import os
import ssl
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    def copyfile(self, source, outputfile):
        whole = source.read()
        half = len(whole) // 2
        outputfile.write(whole[:half])
        outputfile.flush()
        pipe = source.name + ".hold"
        if os.path.exists(pipe):
            with open(pipe, "rb") as end:
                end.read(1)
        outputfile.write(whole[half:])

    def log_message(self, form, *arguments):
        print("asked", form % arguments, flush=True)


class Server(http.server.ThreadingHTTPServer):
    # Print nothing when a client has gone: the tests end clients in the middle of downloads.
    def handle_error(self, request, client_address):
        pass


server = Server(("127.0.0.1", 0), functools.partial(Handler, directory=sys.argv[1]))
if len(sys.argv) > 2:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(*sys.argv[2:])
    server.socket = context.wrap_socket(server.socket, server_side=True)
print("port", server.server_port, flush=True)
server.serve_forever()
