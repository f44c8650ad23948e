#!/usr/bin/env python3
"""The test repository server's own answers, over real TLS on loopback."""

import base64
import http.client
import json
import os
import ssl
import subprocess
import tempfile
import threading
import unittest

import nexus_server  # beside this file, so on the path

HERE = os.path.dirname(os.path.abspath(__file__))

CREDENTIAL = b"fpt-upload:" + b"s3cret" * 16
READER = b"fpt-yield:r3ad"


def form(directory, asset=True):
    # The three parts the upload sends, the file's with a file name.
    fields = [(b'raw.asset1"; filename="r.txt', b"one\r\ntwo\n\x00\xff")] if asset else []
    fields += [(b"raw.directory", directory), (b"raw.asset1.filename", b"r.txt")]
    return b"".join(b'--XyZ\r\nContent-Disposition: form-data; name="' + name + b'"\r\n\r\n'
                    + content + b"\r\n" for name, content in fields) + b"--XyZ--\r\n"


class ServerTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        subprocess.run([os.path.join(HERE, "make_test_pki.sh"), work.name], check=True,
                       stdout=subprocess.DEVNULL)
        self.storage, self.records = os.path.join(work.name, "s"), os.path.join(work.name, "r")
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(work.name, "server.crt"),
                                os.path.join(work.name, "server.key"))
        server = nexus_server.RepositoryServer(("127.0.0.1", 0), context, CREDENTIAL,
                                               self.storage, self.records, "normal", READER)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(lambda: (server.shutdown(), server.server_close()))
        self.client = ssl.create_default_context(cafile=os.path.join(work.name, "ca.crt"))
        self.port = server.server_address[1]

    def post(self, body, credential=CREDENTIAL):
        connection = http.client.HTTPSConnection("localhost", self.port, context=self.client)
        headers = {"Content-Type": "multipart/form-data; boundary=XyZ",
                   "Authorization": b"Basic " + base64.b64encode(credential)}
        connection.request("POST", "/service/rest/v1/components?repository="
                           "vy_production_artifacts", body=body, headers=headers)
        return connection.getresponse().status

    def get(self, target, credential=READER):
        connection = http.client.HTTPSConnection("localhost", self.port, context=self.client)
        connection.request("GET", target,
                           headers={"Authorization": b"Basic " + base64.b64encode(credential)})
        response = connection.getresponse()
        return response.status, response.read()

    def test_stores_under_the_normalised_directory_and_records_no_credential(self):
        self.assertEqual(self.post(form(b"/CV084//front_panel_test/")), 204)
        with open(os.path.join(self.storage, "CV084", "front_panel_test", "r.txt"), "rb") as f:
            self.assertEqual(f.read(), b"one\r\ntwo\n\x00\xff")
        with open(self.records, encoding="utf-8") as f:
            record = f.read()
        self.assertIn('"user": "fpt-upload"', record)
        self.assertNotIn("s3cret", record)
        self.assertNotIn(base64.b64encode(CREDENTIAL)[16:].decode(), record)

    def test_refusals_store_nothing(self):
        for body, credential, status in [(form(b"/a/"), b"fpt-upload:wrong", 401),
                                         (form(b"/a/"), b"", 401),
                                         (form(b"/a/", asset=False), CREDENTIAL, 400),
                                         (form(b"/../../etc/"), CREDENTIAL, 400)]:
            with self.subTest(credential=credential, body=body):
                self.assertEqual(self.post(body, credential), status)
        self.assertFalse(os.path.exists(self.storage))

    def test_accounts_kept_apart_and_a_listing_between_uploads_lists_each_asset_once(self):
        listing = "/service/rest/v1/assets?repository=vy_production_artifacts"
        self.assertEqual(self.post(form(b"/CV084/"), READER), 403)
        self.assertEqual(self.get(listing, CREDENTIAL)[0], 403)
        for n in range(150):
            self.assertEqual(self.post(form(b"/CV084/%d/" % n)), 204)
        status, body = self.get(listing)
        first = json.loads(body)
        self.assertEqual((status, len(first["items"])), (200, 100))
        self.assertEqual(self.post(form(b"/CV084/late/")), 204)
        rest = json.loads(self.get(listing + "&continuationToken=" + first["continuationToken"])[1])
        self.assertIsNone(rest["continuationToken"])
        paths = [item["path"].lstrip("/") for item in first["items"] + rest["items"]]
        self.assertEqual(len(paths), len(set(paths)))
        self.assertTrue({"CV084/%d/r.txt" % n for n in range(150)} <= set(paths))
        self.assertNotEqual(paths, sorted(paths))
        item = first["items"][0]
        self.assertEqual(self.get(item["downloadUrl"].partition(str(self.port))[2]),
                         (200, b"one\r\ntwo\n\x00\xff"))
        self.assertEqual((item["checksum"]["sha1"], item["uploader"], item["uploaderIp"]),
                         ("7d9bf2bd4cd0fc35235be772a7b797ec901914ec", "fpt-upload", "127.0.0.1"))

if __name__ == "__main__":
    unittest.main()
