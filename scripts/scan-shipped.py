#!/usr/bin/env python3
"""scan-shipped.py --provisioned NexusProvisioned.inc --credential FILE... PATH...

Looks through everything that leaves the build for a trace of the upload
credential: every file of each Debian package (.deb, .ddeb: data and control
members), directory or single file given. A trace is the name of a
provisioned value (the identifiers the generated source declares) as a
symbol or in debug information, the plain credential, or its base64 form
(the Authorization header's). ELF sections compressed by the linker or
dh_strip, and gzip files (manual pages, changelog), are searched as
decompressed. Exit status 1, with one line per trace, when any is found.
"""

import argparse
import base64
import gzip
import os
import re
import struct
import subprocess
import sys
import tempfile
import zlib

SHF_COMPRESSED = 0x800
ELFCOMPRESS_ZLIB = 1


def elf_compressed_sections(data):
    """The decompressed contents of an ELF file's SHF_COMPRESSED sections."""
    is64 = data[4] == 2
    endian = "<" if data[5] == 1 else ">"
    if is64:
        shoff, = struct.unpack_from(endian + "Q", data, 0x28)
        shentsize, shnum = struct.unpack_from(endian + "HH", data, 0x3A)
    else:
        shoff, = struct.unpack_from(endian + "I", data, 0x20)
        shentsize, shnum = struct.unpack_from(endian + "HH", data, 0x2E)
    for i in range(shnum):
        at = shoff + i * shentsize
        if is64:
            flags, _, offset, size = struct.unpack_from(endian + "QQQQ", data, at + 8)
            chdr, chdr_size = endian + "I4xQQ", 24
        else:
            flags, _, offset, size = struct.unpack_from(endian + "IIII", data, at + 8)
            chdr, chdr_size = endian + "III", 12
        if flags & SHF_COMPRESSED:
            kind = struct.unpack_from(chdr, data, offset)[0]
            if kind == ELFCOMPRESS_ZLIB:
                yield zlib.decompress(data[offset + chdr_size:offset + size])


def contents(path):
    """The file's bytes and whatever is compressed inside them."""
    with open(path, "rb") as f:
        data = f.read()
    yield data
    if data[:4] == b"\x7fELF":
        yield from elf_compressed_sections(data)
    elif data[:2] == b"\x1f\x8b":
        yield gzip.decompress(data)


def traces(names, credentials):
    found = []
    for name in names:
        word = re.escape(name.encode())
        # As written (debug information, demangled) and as an Itanium
        # mangled name component (length, then the identifier).
        found.append((f"the name {name}", re.compile(rb"(?<![A-Za-z0-9_])" + word +
                                                      rb"(?![A-Za-z0-9_])")))
        found.append((f"the name {name}", re.compile(rb"(?<![0-9])" + str(len(name)).encode() +
                                                      word)))
    for credential in credentials:
        found.append(("the plain credential", re.compile(re.escape(credential))))
        found.append(("the credential's base64",
                      re.compile(re.escape(base64.b64encode(credential)))))
    return found


def files_of(path, scratch):
    if path.endswith((".deb", ".ddeb")):
        tree = tempfile.mkdtemp(dir=scratch)
        subprocess.run(["dpkg-deb", "-R", path, tree], check=True)
        path = tree
    if os.path.isdir(path):
        for top, _, names in os.walk(path):
            for name in sorted(names):
                full = os.path.join(top, name)
                if os.path.isfile(full) and not os.path.islink(full):
                    yield full, os.path.relpath(full, path)
    else:
        yield path, os.path.basename(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[1])
    parser.add_argument("--provisioned", required=True,
                        help="the generated provisioning source (upload/generated/*.inc)")
    parser.add_argument("--credential", action="append", default=[],
                        help="a credential file (user:password) the build was provisioned with")
    parser.add_argument("paths", nargs="+")
    args = parser.parse_args()

    with open(args.provisioned) as f:
        names = sorted(set(re.findall(r"\b(k[A-Z]\w*)\s*(?:\[|=)", f.read())))
    credentials = []
    for path in args.credential:
        with open(path, "rb") as f:
            credentials.append(f.read().strip())
    if not names or not credentials:
        sys.exit("scan: no provisioned names or no credential to look for")
    patterns = traces(names, credentials)

    scanned = 0
    problems = []
    with tempfile.TemporaryDirectory() as scratch:
        for path in args.paths:
            for full, shown in files_of(path, scratch):
                scanned += 1
                what = {label for data in contents(full) for label, pattern in patterns
                        if pattern.search(data)}
                problems += [f"scan: {os.path.basename(path)}: {shown}: {w}" for w in sorted(what)]
    print("\n".join(problems) if problems else
          f"scan: {scanned} files, no trace of {', '.join(names)} or the credential")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
