#!/usr/bin/python3
"""Benchmark of the web client's file list on a folder of 100,000 items.

Makes the items on disk before the daemon starts (start-up reconciliation
indexes them), waits until the listing has them all, then in headless
Chromium measures: the time from navigation to the first rows, a scroll
from the top to the end at five screens per frame (duration, longest frame
gap) and a jump to the end, and the most row elements the DOM held at once.

usage: bench/web_list_bench.py [BUILD_DIR] [ITEMS]
"""
import http.cookiejar
import json
import os
import sys
import time
import urllib.parse
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "browser"))
import browser  # noqa: E402
import stack  # noqa: E402

FOLDER = "big"


def make_items(count):
    def make(s):
        folder = os.path.join(s.home(), FOLDER)
        os.makedirs(folder)
        for i in range(count):
            with open(os.path.join(folder, "item-%06d.txt" % i), "w") as f:
                f.write("item %d\n" % i)
    return make


def wait_indexed(s, count):
    jar = http.cookiejar.CookieJar()
    opener = urllib.request.build_opener(urllib.request.HTTPCookieProcessor(jar))
    api = s.url + "webapi/entry.cgi"

    def post(fields, token=None):
        request = urllib.request.Request(api, urllib.parse.urlencode(fields).encode())
        if token:
            request.add_header("X-ZEMO-Token", token)
        return json.load(opener.open(request))

    token = post({"api": "ZEMO.API.Auth", "version": 1, "method": "login",
                  "account": stack.USER, "passwd": stack.PASSWORD})["data"]["token"]
    start = time.monotonic()
    while True:
        answer = post({"api": "ZEMO.ZemoraOrvel.Files", "version": 1, "method": "list",
                       "path": "/mydrive/" + FOLDER, "limit": 1}, token)
        if answer.get("success") and answer["data"]["total"] >= count:
            return time.monotonic() - start
        time.sleep(0.5)


FIRST_ROWS = """
const done = arguments[arguments.length - 1];
const t0 = performance.now();
location.hash = arguments[0];
function check() {
  if (document.querySelector('.vrow[data-name^="item-"]')) done(performance.now() - t0);
  else requestAnimationFrame(check);
}
check();
"""

SCROLL = """
const done = arguments[arguments.length - 1];
const vp = document.getElementById('file-list');
let maxRows = 0, maxGap = 0, last = performance.now();
const t0 = last;
function rows() { return document.querySelectorAll('.vrow').length; }
function step() {
  const now = performance.now();
  maxGap = Math.max(maxGap, now - last);
  last = now;
  maxRows = Math.max(maxRows, rows());
  if (vp.scrollTop + vp.clientHeight < vp.scrollHeight - 1) {
    vp.scrollTop += vp.clientHeight * 5;
    requestAnimationFrame(step);
  } else {
    waitLast();
  }
}
function waitLast() {
  maxRows = Math.max(maxRows, rows());
  const total = Number(vp.querySelector('.vrow').getAttribute('aria-setsize'));
  const lastRow = document.getElementById('row-' + (total - 1));
  if (lastRow && lastRow.dataset.name) done({ms: performance.now() - t0, maxRows, maxGap,
    lastName: lastRow.dataset.name});
  else requestAnimationFrame(waitLast);
}
requestAnimationFrame(step);
"""

JUMP = """
const done = arguments[arguments.length - 1];
const vp = document.getElementById('file-list');
vp.scrollTop = 0;
requestAnimationFrame(() => {
  const t0 = performance.now();
  vp.scrollTop = vp.scrollHeight;
  const total = Number(vp.querySelector('.vrow').getAttribute('aria-setsize'));
  (function wait() {
    const lastRow = document.getElementById('row-' + (total - 1));
    if (lastRow && lastRow.dataset.name) done({ms: performance.now() - t0,
      rows: document.querySelectorAll('.vrow').length});
    else requestAnimationFrame(wait);
  })();
});
"""


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(stack.REPO, "build")
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 100000
    t = time.monotonic()
    s = stack.Stack(build, before_daemon=make_items(count))
    print("items on disk and stack up: %.1f s" % (time.monotonic() - t))
    b = None
    try:
        print("indexed by reconciliation after: %.1f s" % wait_indexed(s, count))
        b = browser.Browser(s.url)
        b.driver.set_script_timeout(600)
        b.open()
        b.visible("#login-account").send_keys(stack.USER)
        b.find("#login-password").send_keys(stack.PASSWORD)
        b.find("#login-submit").click()
        b.visible("#breadcrumbs")
        for run in range(3):
            b.open("#/files/mydrive")
            b.visible('.vrow[data-name="%s"]' % FOLDER)
            ms = b.driver.execute_async_script(FIRST_ROWS, "#/files/mydrive/" + FOLDER)
            print("navigation to first rows (run %d): %.0f ms" % (run + 1, ms))
        scroll = b.driver.execute_async_script(SCROLL)
        print("scroll top to end, 5 screens a frame: %.0f ms, longest frame gap %.0f ms, "
              "last row %s" % (scroll["ms"], scroll["maxGap"], scroll["lastName"]))
        # Again from a fresh listing, so the end's pages are not cached.
        b.open("#/files/mydrive")
        b.visible('.vrow[data-name="%s"]' % FOLDER)
        b.driver.execute_async_script(FIRST_ROWS, "#/files/mydrive/" + FOLDER)
        jump = b.driver.execute_async_script(JUMP)
        print("jump to the end until the last row shows: %.0f ms" % jump["ms"])
        print("most row elements in the DOM at once: %d (of %d items)"
              % (max(scroll["maxRows"], jump["rows"]), count))
        errors = b.console_errors()
        if errors:
            print("console errors:", errors)
            return 1
    finally:
        if b:
            b.close()
        s.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
