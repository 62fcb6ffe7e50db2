#!/usr/bin/python3
"""Benchmark of an upload of one large file through the web client's file
input, in headless Chromium against a private stack.

Makes a sparse file of SIZE_GIB GiB (truncate: zeros that take no disk
space), chooses it in the page's file input, and times from the choice to
the upload row saying "done". Prints MB/s (1 MB = 10^6 bytes), then checks
through the Files API that the stored item has the source's size and SHA-256
hash, and that the file on disk has that size.

usage: bench/web_upload_bench.py [BUILD_DIR] [SIZE_GIB]
"""
import hashlib
import os
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "browser"))
import browser  # noqa: E402
import stack  # noqa: E402

NAME = "large-upload.bin"

GET_ITEM = """
const done = arguments[arguments.length - 1];
import("/js/api.js").then((api) => api.call("get", { path: arguments[0] }))
  .then((item) => done({ size: item.size, hash: item.hash }), (e) => done({ error: e.message }));
"""


def sha256_of(path):
    digest = hashlib.sha256()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest()


def sign_in(b):
    b.open()
    b.visible("#login-account").send_keys(stack.USER)
    b.find("#login-password").send_keys(stack.PASSWORD)
    b.find("#login-submit").click()
    b.visible("#breadcrumbs")


def upload(b, source, size):
    """Chooses source in the file input; answers the seconds until it is done."""
    b.open("#/files/mydrive")
    b.visible("#breadcrumbs")
    start = time.monotonic()
    b.find("#upload-input").send_keys(source)
    row = '.upload-item[data-state="%s"]'
    b.wait(lambda: b.find_all(row % "done") or b.find_all(row % "failed"), "the upload to end",
           seconds=max(600, size / (1 << 20)))
    seconds = time.monotonic() - start
    failed = b.find_all(row % "failed")
    if failed:
        raise RuntimeError("upload failed: " + failed[0].text)
    return seconds


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(stack.REPO, "build")
    gib = float(sys.argv[2]) if len(sys.argv) > 2 else 2.0
    size = int(gib * (1 << 30))
    work = tempfile.mkdtemp(prefix="orvel-upbench-")
    source = os.path.join(work, NAME)
    with open(source, "wb") as f:
        f.truncate(size)
    s = stack.Stack(build)
    b = None
    try:
        b = browser.Browser(s.url)
        sign_in(b)
        seconds = upload(b, source, size)
        print("upload of %.2f GiB through the file input: %.1f s, %.1f MB/s"
              % (size / (1 << 30), seconds, size / seconds / 1e6))
        stored = b.driver.execute_async_script(GET_ITEM, "/mydrive/" + NAME)
        expected = sha256_of(source)
        on_disk = os.path.getsize(os.path.join(s.home(), NAME))
        print("stored: size %s, hash %s; on disk %d bytes" % (stored.get("size"), stored.get("hash"), on_disk))
        ok = stored.get("size") == size and stored.get("hash") == expected and on_disk == size
        print("size and SHA-256 match the source" if ok else "MISMATCH: expected size %d, hash %s"
              % (size, expected))
        errors = b.console_errors()
        if errors:
            print("console errors:", errors)
        return 0 if ok and not errors else 1
    finally:
        if b:
            b.close()
        s.close()
        os.remove(source)
        os.rmdir(work)


if __name__ == "__main__":
    sys.exit(main())
