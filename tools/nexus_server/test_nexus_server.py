#!/usr/bin/env python3
"""The test repository server's own answers, over real TLS on loopback."""

import base64
import http.client
import json
import os
import ssl
import subprocess
import sys
import tempfile
import threading
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import nexus_server  # noqa: E402

CREDENTIAL = b"fpt-upload:" + b"s3cret" * 16
PATH = "/service/rest/v1/components?repository=vy_production_artifacts"


def form(fields, boundary=b"XyZ"):
    """fields: (name, filename or None, body) in order."""
    body = b""
    for name, filename, content in fields:
        disposition = b'form-data; name="' + name + b'"'
        if filename is not None:
            disposition += b'; filename="' + filename + b'"'
        body += b"--" + boundary + b"\r\nContent-Disposition: " + disposition + b"\r\n\r\n"
        body += content + b"\r\n"
    return body + b"--" + boundary + b"--\r\n", "multipart/form-data; boundary=" + boundary.decode()


GOOD_FIELDS = [
    (b"raw.asset1", b"r.txt", b"line one\r\nline two\n\x00\xff"),
    (b"raw.directory", None, b"/CV084/123/front_panel_test/"),
    (b"raw.asset1.filename", None, b"r.txt"),
]


class ServerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.pki = tempfile.TemporaryDirectory()
        subprocess.run([os.path.join(HERE, "make_test_pki.sh"), cls.pki.name], check=True)
        cls.client_context = ssl.create_default_context(cafile=os.path.join(cls.pki.name, "ca.crt"))

    @classmethod
    def tearDownClass(cls):
        cls.pki.cleanup()

    def start(self, mode="normal"):
        self.work = tempfile.TemporaryDirectory()
        self.addCleanup(self.work.cleanup)
        self.storage = os.path.join(self.work.name, "storage")
        self.records = os.path.join(self.work.name, "records.jsonl")
        os.makedirs(self.storage)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(self.pki.name, "server.crt"),
                                os.path.join(self.pki.name, "server.key"))
        server = nexus_server.RepositoryServer(("127.0.0.1", 0), context, CREDENTIAL, self.storage,
                                               self.records, mode)
        thread = threading.Thread(target=server.serve_forever, daemon=True)
        thread.start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.port = server.server_address[1]

    def post(self, body, content_type, credential=CREDENTIAL, path=PATH, timeout=10):
        connection = http.client.HTTPSConnection("localhost", self.port, timeout=timeout,
                                                 context=self.client_context)
        headers = {"Content-Type": content_type}
        if credential is not None:
            headers["Authorization"] = "Basic " + base64.b64encode(credential).decode()
        try:
            connection.request("POST", path, body=body, headers=headers)
            response = connection.getresponse()
            return response.status, response.read(), dict(response.getheaders())
        finally:
            connection.close()

    def recorded(self):
        with open(self.records, encoding="utf-8") as source:
            return [json.loads(line) for line in source if line.strip()]

    def stored(self):
        found = {}
        for root, _, files in os.walk(self.storage):
            for name in files:
                with open(os.path.join(root, name), "rb") as source:
                    found[os.path.relpath(os.path.join(root, name), self.storage)] = source.read()
        return found

    def test_upload_is_stored_under_the_normalised_directory_and_recorded(self):
        self.start()
        for directory, expected in ((b"/CV084/123/front_panel_test/", "CV084/123/front_panel_test/r.txt"),
                                    (b"/CV084//front_panel_test/", "CV084/front_panel_test/r.txt")):
            with self.subTest(directory=directory):
                fields = [GOOD_FIELDS[0], (b"raw.directory", None, directory), GOOD_FIELDS[2]]
                body, content_type = form(fields)
                status, payload, _ = self.post(body, content_type)
                self.assertEqual((status, payload), (204, b""))
                self.assertEqual(self.stored().get(expected), GOOD_FIELDS[0][2])
        record = self.recorded()[0]
        self.assertEqual((record["method"], record["path"], record["query"], record["status"]),
                         ("POST", "/service/rest/v1/components",
                          "repository=vy_production_artifacts", 204))
        self.assertEqual([p["name"] for p in record["parts"]],
                         ["raw.asset1", "raw.directory", "raw.asset1.filename"])
        self.assertEqual(record["parts"][0]["headers"],
                         [["Content-Disposition", 'form-data; name="raw.asset1"; filename="r.txt"']])
        self.assertEqual(base64.b64decode(record["parts"][0]["body_base64"]), GOOD_FIELDS[0][2])
        self.assertEqual(base64.b64decode(record["body_base64"]), form(GOOD_FIELDS)[0])

    def test_refusals(self):
        self.start()
        good, content_type = form(GOOD_FIELDS)
        cases = [
            ("wrong credential", dict(credential=b"fpt-upload:wrong"), 401, None),
            ("no credential", dict(credential=None), 401, None),
            ("unknown repository",
             dict(path="/service/rest/v1/components?repository=elsewhere"), 404, None),
            ("unknown path", dict(path="/service/rest/v1/assets?repository=vy_production_artifacts"),
             404, None),
            ("no repository", dict(path="/service/rest/v1/components"), 400,
             ["PARAMETER repository"]),
            ("missing directory", dict(body=form([GOOD_FIELDS[0], GOOD_FIELDS[2]])[0]), 400,
             ["directory"]),
            ("missing asset and name", dict(body=form([GOOD_FIELDS[1]])[0]), 400,
             ["asset1", "asset1.filename"]),
            ("escaping the storage",
             dict(body=form([GOOD_FIELDS[0], (b"raw.directory", None, b"/../../etc/"),
                             GOOD_FIELDS[2]])[0]), 400, ["asset1.filename"]),
        ]
        for what, overrides, expected_status, error_ids in cases:
            with self.subTest(what):
                arguments = dict(body=good, content_type=content_type)
                arguments.update(overrides)
                status, payload, headers = self.post(**arguments)
                self.assertEqual(status, expected_status)
                if expected_status == 401:
                    self.assertIn("WWW-Authenticate", headers)
                if error_ids is not None:
                    self.assertEqual([e["id"] for e in json.loads(payload)], error_ids)
                self.assertEqual(self.recorded()[-1]["status"], expected_status)
        self.assertEqual(self.stored(), {})


if __name__ == "__main__":
    unittest.main()
