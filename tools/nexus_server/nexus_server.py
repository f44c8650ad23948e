#!/usr/bin/env python3
"""Test artifact repository for the front panel test's results upload.

A real HTTPS server that does what a Sonatype Nexus server's REST components
interface does for a raw hosted repository, as far as the upload uses it:

  POST /service/rest/v1/components?repository=vy_production_artifacts
  Authorization: Basic base64(user:password)
  multipart/form-data with raw.directory, raw.asset1 (the file) and
  raw.asset1.filename

answers 204 and stores the asset under STORAGE/<directory>/<filename>, with
the directory normalised (no leading, trailing or doubled slashes). A wrong or
missing credential gets 401, a missing part or repository 400 with a JSON list
of errors, an unknown repository or path 404.

With --read-credential-file it also serves what a reader of the repository
uses:

  GET /service/rest/v1/assets?repository=vy_production_artifacts
      [&continuationToken=TOKEN]

answers {"items": [...], "continuationToken": TOKEN or null}, 100 assets a
page in a stable order that is not alphabetical (the real server's follows its
internal ids). Each item has id, repository, format, path (some with a leading
"/", as server versions differ), downloadUrl, checksum (sha1, sha256, sha512,
md5), contentType, lastModified, and uploader and uploaderIp where known; and

  GET /repository/vy_production_artifacts/<path>

answers the asset's bytes. The two accounts are kept apart as the factory's
are: the upload account (--credential-file) may only upload and the read-only
account may only read; the other one gets 403.

Assets already in STORAGE when the server starts are served too, which seeds
the repository from a generated corpus in one step; --assets-meta names a file
of JSON lines {"path", "uploader", "uploaderIp"} that says who uploaded them.
An upload records its account and the client's address.

Fault modes for tests: --mode error500 answers every request with 500;
--mode hang reads the request and never answers; --mode failN answers the
first N requests with 500, then works normally; --mode slowN takes N ms to
store the asset and N ms more to answer (a client can die at either);
--cut-after-pages K serves K pages of the assets listing, then drops every
connection without an answer, as a network gone mid-listing does.
--mode noredeploy refuses, as a hosted repository with redeploy disabled does,
to store an asset that is already there (400), and --mode noredeploy-noread
does that for an account that may not read the repository either. Assets are
read back with GET /repository/REPOSITORY/PATH (and PATH.sha1, the stored
asset's SHA-1 in hex) by the upload account in noredeploy mode only, 403 in
noredeploy-noread. Every request is appended to
--record-file as one JSON line (method, path, query, the user name, the headers
but Authorization, body, parts with their headers and bodies, status, and the
wall-clock time in ns, after an asset is stored) before it is answered.

Once listening it prints "nexus_server: listening on https://HOST:PORT" on
standard output (useful with --port 0).
"""

import argparse
import base64
import binascii
import bisect
import collections
import hashlib
import hmac
import json
import os
import re
import socket
import ssl
import sys
import tempfile
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from email.utils import formatdate
from urllib.parse import parse_qs, quote, unquote, urlsplit

COMPONENTS_PATH = "/service/rest/v1/components"
ASSETS_PATH = "/service/rest/v1/assets"
DOWNLOAD_PREFIX = "/repository/"
REPOSITORIES = ("vy_production_artifacts",)
PAGE_SIZE = 100
REALM = 'BASIC realm="Sonatype Nexus Repository Manager"'


class BadRequest(Exception):
    def __init__(self, errors):
        super().__init__(errors)
        self.errors = errors


def parse_multipart(body, boundary):
    """Splits a multipart body into parts, keeping every header as sent."""
    delimiter = b"--" + boundary
    if not body.startswith(delimiter):
        raise ValueError("body does not start with the boundary")
    parts = []
    pos = len(delimiter)
    while True:
        if body[pos:pos + 2] == b"--":
            return parts
        if body[pos:pos + 2] != b"\r\n":
            raise ValueError("boundary not followed by CRLF")
        pos += 2
        end = body.find(b"\r\n" + delimiter, pos)
        if end < 0:
            raise ValueError("unterminated part")
        chunk = body[pos:end]
        if chunk.startswith(b"\r\n"):
            head, content = b"", chunk[2:]
        else:
            head, separator, content = chunk.partition(b"\r\n\r\n")
            if not separator:
                raise ValueError("part without a blank line after its headers")
        headers = []
        for line in head.split(b"\r\n") if head else []:
            name, colon, value = line.partition(b":")
            if not colon:
                raise ValueError("malformed part header")
            headers.append([name.decode("latin-1"), value.strip().decode("latin-1")])
        parts.append({"headers": headers, "body": content})
        pos = end + 2 + len(delimiter)


def disposition_params(headers):
    for name, value in headers:
        if name.lower() == "content-disposition":
            return dict(re.findall(r';\s*([\w.\-]+)="([^"]*)"', value))
    return {}


def normalise(directory, filename):
    """STORAGE-relative path of an asset, or None if it would leave STORAGE."""
    segments = [s for s in (directory + "/" + filename).split("/") if s]
    if not segments or any(s in (".", "..") for s in segments) or "\0" in filename:
        return None
    return "/".join(segments)


class AssetIndex:
    """The stored assets in listing order, with what the listing says of them.

    The order key is a hash of the path: stable from one listing to the next,
    unrelated to the alphabet, and a new asset lands anywhere in it, as a new
    one does in the real server's order. A continuation token is the key of
    the page's last asset, so a listing stays whole while assets arrive.

    Each item's JSON is made once, when the asset is stored, around the
    place where the base address goes: a year of a busy line is a thousand
    pages, and the real server answers one in a few milliseconds, not in the
    time Python takes to build a hundred items afresh."""

    def __init__(self):
        self.keys = []
        self.items = {}
        self.encoded = {}

    def __len__(self):
        return len(self.keys)

    def put(self, relative, data, uploader=None, uploader_ip=None, modified=None):
        key = hashlib.sha1(relative.encode("utf-8")).hexdigest()
        if key not in self.items:
            bisect.insort(self.keys, key)
        self.items[key] = {
            "relative": relative,
            "sha1": hashlib.sha1(data).hexdigest(),
            "sha256": hashlib.sha256(data).hexdigest(),
            "sha512": hashlib.sha512(data).hexdigest(),
            "md5": hashlib.md5(data).hexdigest(),
            "size": len(data),
            "modified": time.time() if modified is None else modified,
            "uploader": uploader,
            "uploaderIp": uploader_ip,
        }
        # A NUL is in no stored path: its escape marks the base address.
        self.encoded[key] = json.dumps(self.item(key, "\0")).split("\\u0000")

    def find(self, relative):
        return self.items.get(hashlib.sha1(relative.encode("utf-8")).hexdigest())

    def page(self, token, base):
        """The JSON of the items after TOKEN (from the start without one) and
        the next token, None after the last page; raises KeyError for a
        token that is no key."""
        if token is not None and not re.fullmatch(r"[0-9a-f]{40}", token):
            raise KeyError(token)
        start = 0 if token is None else bisect.bisect_right(self.keys, token)
        keys = self.keys[start:start + PAGE_SIZE]
        more = start + PAGE_SIZE < len(self.keys)
        base = json.dumps(base)[1:-1]
        return [base.join(self.encoded[key]) for key in keys], keys[-1] if more else None

    def item(self, key, base):
        asset = self.items[key]
        relative = asset["relative"]
        item = {
            "id": base64.b64encode(("vy_production_artifacts:" + key[:32]).encode()).decode(),
            "repository": "vy_production_artifacts",
            "format": "raw",
            # Some server versions give the path with a leading slash.
            "path": ("/" if int(key[0], 16) % 3 == 0 else "") + relative,
            "downloadUrl": base + DOWNLOAD_PREFIX + "vy_production_artifacts/" + quote(relative),
            "checksum": {name: asset[name] for name in ("sha1", "sha256", "sha512", "md5")},
            "contentType": "text/plain",
            "lastModified": time.strftime("%Y-%m-%dT%H:%M:%S.000+00:00",
                                          time.gmtime(asset["modified"])),
            "fileSize": asset["size"],
        }
        for name in ("uploader", "uploaderIp"):
            if asset[name] is not None:
                item[name] = asset[name]
        return item


def scan_storage(storage, meta_file):
    """An index of every file under STORAGE, with the uploader and address
    that META_FILE (JSON lines, may be empty) gives for each path."""
    meta = {}
    if meta_file and os.path.exists(meta_file):
        with open(meta_file, encoding="utf-8") as source:
            for line in source:
                if line.strip():
                    entry = json.loads(line)
                    meta[entry["path"]] = entry
    index = AssetIndex()
    for folder, _, files in os.walk(storage):
        for name in files:
            full = os.path.join(folder, name)
            relative = os.path.relpath(full, storage).replace(os.sep, "/")
            with open(full, "rb") as source:
                data = source.read()
            known = meta.get(relative, {})
            index.put(relative, data, known.get("uploader"), known.get("uploaderIp"),
                      os.stat(full).st_mtime)
    return index


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "Nexus/3 (test repository)"

    def log_message(self, fmt, *args):
        sys.stderr.write("nexus_server: %s %s\n" % (self.address_string(), fmt % args))

    def read_body(self):
        if "chunked" in self.headers.get("Transfer-Encoding", "").lower():
            body = b""
            while True:
                size = int(self.rfile.readline().split(b";")[0].strip(), 16)
                if size == 0:
                    while self.rfile.readline() not in (b"\r\n", b"\n", b""):
                        pass
                    return body
                body += self.rfile.read(size)
                self.rfile.readline()
        length = int(self.headers.get("Content-Length", "0") or "0")
        return self.rfile.read(length) if length > 0 else b""

    def record(self, body, parts, status):
        split = urlsplit(self.path)
        entry = {
            "method": self.command,
            "path": split.path,
            "query": split.query,
            "request_line": self.requestline,
            # Who uploaded, never the Authorization header's value: records
            # end up in test logs and artifacts.
            "user": self.basic_credential().partition(b":")[0].decode("latin-1"),
            "headers": [[name, value] for name, value in self.headers.items()
                        if name.lower() != "authorization"],
            "body_base64": base64.b64encode(body).decode("ascii"),
            "parts": [
                {
                    "headers": part["headers"],
                    "name": disposition_params(part["headers"]).get("name"),
                    "filename": disposition_params(part["headers"]).get("filename"),
                    "body_base64": base64.b64encode(part["body"]).decode("ascii"),
                }
                for part in parts
            ],
            "status": status,
            # When it was taken (wall clock, ns): a stored asset is recorded
            # before it is answered, so this comes after the store.
            "time_ns": time.time_ns(),
        }
        self.server.write_record(entry)

    def respond(self, status, payload=None, extra_headers=()):
        self.send_response(status)
        for name, value in extra_headers:
            self.send_header(name, value)
        if status != 204:
            data = b"" if payload is None else payload
            content_type = "application/json" if payload is not None and payload[:1] in (b"[", b"{") else "text/plain"
            self.send_header("Content-Type", content_type)
            self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        if status != 204 and payload:
            self.wfile.write(payload)

    def hang(self):
        # Accepted and read, never answered: wait for the client to give up.
        self.close_connection = True
        try:
            self.connection.settimeout(None)
            while self.connection.recv(4096):
                pass
        except (OSError, ssl.SSLError):
            pass

    def drop(self):
        # The network gone: the connection closes with no answer at all.
        self.close_connection = True
        try:
            self.connection.shutdown(2)
        except OSError:
            pass

    def handle_request(self):
        body = self.read_body()
        parts = []
        content_type = self.headers.get("Content-Type", "")
        match = re.search(r'boundary="?([^";]+)"?', content_type)
        parse_error = None
        if content_type.lower().startswith("multipart/form-data") and match:
            try:
                parts = parse_multipart(body, match.group(1).encode("latin-1"))
            except ValueError as error:
                parse_error = str(error)

        if self.server.cut_off():
            self.drop()
            return
        mode = self.server.mode
        if mode == "hang":
            self.record(body, parts, None)
            self.hang()
            return
        if mode == "error500" or self.server.take_failure():
            self.record(body, parts, 500)
            self.respond(500, b"Internal Server Error")
            return

        delay = int(mode[4:]) / 1000 if mode.startswith("slow") else 0
        time.sleep(delay)
        status, payload, extra = self.decide(parts, content_type, match, parse_error)
        if status == 200 and urlsplit(self.path).path == ASSETS_PATH:
            self.server.count_page()
        self.record(body, parts, status)
        time.sleep(delay)
        self.respond(status, payload, extra)

    def decide(self, parts, content_type, boundary, parse_error):
        """Status, body and extra headers for a request in normal mode; stores the asset."""
        account = self.account()
        if account is None:
            return 401, None, [("WWW-Authenticate", REALM)]
        split = urlsplit(self.path)
        if split.path == ASSETS_PATH or split.path.startswith(DOWNLOAD_PREFIX):
            if self.command != "GET":
                return 405, None, [("Allow", "GET")]
            # The station's own account reads back what it stored only where
            # the repository grants it that (a resend refused as a redeploy).
            if account == "upload" and split.path.startswith(DOWNLOAD_PREFIX) \
                    and self.server.mode.startswith("noredeploy"):
                return self.read_asset(split.path)
            if account != "read":
                return 403, None, []
            if split.path == ASSETS_PATH:
                return self.list_assets(split.query)
            return self.download(split.path)
        if split.path != COMPONENTS_PATH:
            return 404, None, []
        if account != "upload":
            return 403, None, []
        if self.command != "POST":
            return 405, None, [("Allow", "POST")]
        repositories = parse_qs(split.query).get("repository", [])
        if not repositories or not repositories[0]:
            return self.errors([("PARAMETER repository", "may not be null")])
        if repositories[0] not in REPOSITORIES:
            return 404, json.dumps({"message": "Repository not found"}).encode(), []
        if not content_type.lower().startswith("multipart/form-data") or not boundary:
            return self.errors([("form", "Expected multipart/form-data")])
        if parse_error is not None:
            return self.errors([("form", "Malformed multipart body: " + parse_error)])

        fields = {}
        for part in parts:
            name = disposition_params(part["headers"]).get("name")
            if name is not None and name not in fields:
                fields[name] = part["body"]
        missing = []
        if "raw.directory" not in fields:
            missing.append(("directory", "Missing required component field 'Directory'"))
        if "raw.asset1" not in fields:
            missing.append(("asset1", "Missing required asset field 'File'"))
        if "raw.asset1.filename" not in fields:
            missing.append(("asset1.filename", "Missing required asset field 'Filename'"))
        if missing:
            return self.errors(missing)
        try:
            directory = fields["raw.directory"].decode("utf-8")
            filename = fields["raw.asset1.filename"].decode("utf-8")
        except UnicodeDecodeError:
            return self.errors([("form", "Fields must be UTF-8")])
        relative = normalise(directory, filename)
        if relative is None:
            return self.errors([("asset1.filename", "Invalid path")])
        if not self.server.store(relative, fields["raw.asset1"],
                                 self.server.mode.startswith("noredeploy"), self.account_name(),
                                 self.client_address[0]):
            return self.errors([("*", "Repository does not allow updating assets: "
                                      + repositories[0])])
        return 204, None, []

    def read_asset(self, path):
        repository, _, rest = path[len("/repository/"):].partition("/")
        if repository not in REPOSITORIES:
            return 404, None, []
        if self.server.mode == "noredeploy-noread":
            return 403, None, []
        checksum = rest.endswith(".sha1")
        relative = normalise(rest[:-len(".sha1")] if checksum else rest, "")
        data = self.server.load(relative) if relative else None
        if data is None:
            return 404, None, []
        return 200, hashlib.sha1(data).hexdigest().encode() if checksum else data, []

    def list_assets(self, query):
        arguments = parse_qs(query)
        repository = arguments.get("repository", [""])[0]
        if not repository:
            return self.errors([("PARAMETER repository", "may not be null")])
        if repository not in REPOSITORIES:
            return 404, json.dumps({"message": "Repository not found"}).encode(), []
        token = arguments.get("continuationToken", [None])[0]
        base = "https://" + self.headers.get("Host", "%s:%d" % self.server.server_address[:2])
        try:
            items, following = self.server.page(token, base)
        except KeyError:
            return 406, json.dumps({"message": "Continuation token not recognised"}).encode(), []
        payload = '{"items": [%s], "continuationToken": %s}' % (", ".join(items),
                                                                json.dumps(following))
        return 200, payload.encode(), []

    def download(self, path):
        repository, _, relative = path[len(DOWNLOAD_PREFIX):].partition("/")
        if repository not in REPOSITORIES:
            return 404, None, []
        relative = normalise(unquote(relative), "")
        data = None if relative is None else self.server.fetch(relative)
        if data is None:
            return 404, None, []
        return 200, data, [("Last-Modified", formatdate(usegmt=True))]

    def errors(self, pairs):
        payload = json.dumps([{"id": i, "message": m} for i, m in pairs]).encode()
        return 400, payload, []

    def basic_credential(self):
        """The user:password of a basic Authorization header, or b"" without one."""
        scheme, _, token = self.headers.get("Authorization", "").partition(" ")
        if scheme.lower() != "basic":
            return b""
        try:
            return base64.b64decode(token.strip(), validate=True)
        except (binascii.Error, ValueError):
            return b""

    def account(self):
        """"upload" or "read" for the account whose credential the request
        carries, None for no or a wrong credential."""
        given = self.basic_credential()
        if not given:
            return None
        if hmac.compare_digest(given, self.server.credential):
            return "upload"
        reader = self.server.read_credential
        if reader and hmac.compare_digest(given, reader):
            return "read"
        return None

    def account_name(self):
        return self.basic_credential().partition(b":")[0].decode("latin-1")

    def do_POST(self):
        self.handle_request()

    def do_GET(self):
        self.handle_request()

    def do_PUT(self):
        self.handle_request()


class RepositoryServer(ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, address, context, credential, storage, record_file, mode,
                 read_credential=b"", assets_meta="", cut_after_pages=None):
        self.context = context
        self.credential = credential
        self.read_credential = read_credential
        self.storage = storage
        self.record_file = record_file
        self.mode = mode
        self.failures_left = int(mode[4:]) if mode.startswith("fail") else 0
        self.lock = threading.Lock()
        self.assets_meta = assets_meta
        self.index = scan_storage(storage, assets_meta)
        # What the tests read: each asset's downloads, and the listing pages.
        self.downloads = collections.Counter()
        self.pages = 0
        self.cut_after_pages = cut_after_pages
        super().__init__(address, Handler)

    def rescan(self):
        """Takes in the files written into STORAGE since (a corpus grown)."""
        index = scan_storage(self.storage, self.assets_meta)
        with self.lock:
            self.index = index

    def cut(self, after_pages):
        """From AFTER_PAGES more listing pages on, every connection drops."""
        with self.lock:
            self.cut_after_pages = self.pages + after_pages

    def restore(self):
        with self.lock:
            self.cut_after_pages = None

    def cut_off(self):
        with self.lock:
            return self.cut_after_pages is not None and self.pages >= self.cut_after_pages

    def count_page(self):
        with self.lock:
            self.pages += 1

    def page(self, token, base):
        with self.lock:
            return self.index.page(token, base)

    def fetch(self, relative):
        with self.lock:
            if self.index.find(relative) is None:
                return None
            self.downloads[relative] += 1
        with open(os.path.join(self.storage, *relative.split("/")), "rb") as source:
            return source.read()

    def finish_request(self, request, client_address):
        # The handshake runs in the connection's own thread, so a client that
        # never completes one holds up nobody else.
        try:
            # Headers and body go out as two writes: without this, the body
            # waits for the client's delayed acknowledgement of the headers
            # (40 ms a request), which no real server makes a client wait.
            request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            tls = self.context.wrap_socket(request, server_side=True)
        except (ssl.SSLError, OSError) as error:
            sys.stderr.write("nexus_server: TLS handshake with %s failed: %s\n"
                             % (client_address[0], error))
            return
        try:
            self.RequestHandlerClass(tls, client_address, self)
        finally:
            try:
                tls.close()
            except OSError:
                pass

    def take_failure(self):
        with self.lock:
            self.failures_left -= 1
            return self.failures_left >= 0

    def write_record(self, entry):
        if not self.record_file:
            return
        line = json.dumps(entry, sort_keys=True) + "\n"
        with self.lock, open(self.record_file, "a", encoding="utf-8") as out:
            out.write(line)
            out.flush()

    def load(self, relative):
        target = os.path.join(self.storage, *relative.split("/"))
        with self.lock:
            if not os.path.isfile(target):
                return None
            with open(target, "rb") as source:
                return source.read()

    def store(self, relative, data, once=False, uploader=None, uploader_ip=None):
        """False when `once` and the asset is already there."""
        target = os.path.join(self.storage, *relative.split("/"))
        with self.lock:
            if once and os.path.exists(target):
                return False
            os.makedirs(os.path.dirname(target), exist_ok=True)
            handle, temporary = tempfile.mkstemp(dir=os.path.dirname(target))
            with os.fdopen(handle, "wb") as out:
                out.write(data)
            os.replace(temporary, target)
            self.index.put(relative, data, uploader, uploader_ip)
        return True


def read_credential(path):
    with open(path, "rb") as source:
        data = source.read()
    if data.endswith(b"\n"):
        data = data[:-1]
        if data.endswith(b"\r"):
            data = data[:-1]
    return data


def mode_name(text):
    if text in ("normal", "error500", "hang", "noredeploy", "noredeploy-noread") \
            or re.fullmatch(r"(fail|slow)\d+", text):
        return text
    raise argparse.ArgumentTypeError("normal, error500, hang, failN, slowN, noredeploy or "
                                     "noredeploy-noread, not %r" % text)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=443)
    parser.add_argument("--cert", required=True, help="server certificate (PEM)")
    parser.add_argument("--key", required=True, help="server private key (PEM)")
    parser.add_argument("--credential-file", required=True,
                        help="user:password accepted for basic authentication")
    parser.add_argument("--storage-dir", required=True)
    parser.add_argument("--record-file", default="", help="JSON lines, one per request")
    parser.add_argument("--mode", type=mode_name, default="normal")
    parser.add_argument("--read-credential-file", default="",
                        help="user:password of the read-only account (listing, downloads)")
    parser.add_argument("--assets-meta", default="",
                        help="JSON lines: uploader and uploaderIp of the stored assets")
    parser.add_argument("--cut-after-pages", type=int, default=None,
                        help="drop every connection once this many listing pages went out")
    args = parser.parse_args(argv)

    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(args.cert, args.key)
    os.makedirs(args.storage_dir, exist_ok=True)
    reader = read_credential(args.read_credential_file) if args.read_credential_file else b""
    server = RepositoryServer((args.host, args.port), context, read_credential(args.credential_file),
                              args.storage_dir, args.record_file, args.mode, reader,
                              args.assets_meta, args.cut_after_pages)
    host, port = server.server_address[:2]
    print("nexus_server: listening on https://%s:%d" % (host, port), flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    finally:
        server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
