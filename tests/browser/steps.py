"""What every browser test class shares: the class set-up (a private stack,
an optional "prepare" step, one browser), the per-test checks (an empty
console log at the start, a screenshot in the build folder on failure) and
the steps the tests are written in (sign in, open a folder, select a row, put
files through the page's own API module).

A test class mixes ClientSteps in before unittest.TestCase and calls
start_stack() from its setUpClass.
"""
import os
import sys

import browser
import stack

BUILD = os.environ.get("ORVEL_BUILD_DIR", os.path.join(stack.REPO, "build"))


class ClientSteps:
    @classmethod
    def start_stack(cls, prepare=None):
        """Starts the class's stack, then prepare(cls) (users, files, shares:
        whatever must exist before the browser), then the browser. A failure
        in any of them stops the stack again."""
        cls.stack = stack.Stack(BUILD)
        try:
            if prepare:
                prepare(cls)
            cls.b = browser.Browser(cls.stack.url)
        except Exception:
            cls.stack.close()
            raise

    @classmethod
    def tearDownClass(cls):
        cls.b.close()
        cls.stack.close()

    def setUp(self):
        self.b.console_errors()   # start each test with an empty log

    def tearDown(self):
        outcome = getattr(self, "_outcome", None)
        errors = getattr(outcome, "errors", None) or []
        result = getattr(outcome, "result", None)
        failed = any(exc for _, exc in errors) or (
            result is not None and any(t is self for t, _ in result.failures + result.errors))
        if failed:
            path = os.path.join(BUILD, "browser-%s.png" % self._testMethodName)
            self.b.screenshot(path)
            sys.stderr.write("screenshot: %s\n" % path)

    def step_ok(self):
        """Fails on any console error since the last call."""
        errors = self.b.console_errors()
        self.assertEqual([], errors, "browser console errors")

    def login(self):
        b = self.b
        b.open()
        b.visible("#login-account").send_keys(stack.USER)
        b.find("#login-password").send_keys(stack.PASSWORD)
        b.find("#login-submit").click()
        b.visible("#breadcrumbs")
        self.step_ok()

    def row(self, name):
        return self.b.visible('.vrow[data-name="%s"]' % name)

    def select_only(self, name):
        self.row(name).click()
        self.b.wait(lambda: self.row(name).get_attribute("aria-selected") == "true", name + " selected")

    def open_folder(self, path):
        b = self.b
        b.open("#/files" + path)
        b.wait(lambda: b.find('#breadcrumbs [aria-current="page"]').text == path.split("/")[-1]
               or (path == "/mydrive" and b.find('#breadcrumbs [aria-current="page"]').text == "My files"),
               "breadcrumbs of " + path)
        b.wait(lambda: "Loading" not in b.find("#list-status").text, "listing of " + path)

    def api(self, script):
        """Runs script (an async function body with `api` imported) in the
        signed-in page and answers its result, or "threw: <message>"."""
        return self.b.driver.execute_async_script("""
          const done = arguments[arguments.length - 1];
          import("/js/api.js").then(async (api) => {
            try { done(await (async () => { %s })()); } catch (e) { done("threw: " + e.message); }
          }, (e) => done("import failed: " + e.message));
        """ % script)

    def put_file(self, folder, name, text, policy="overwrite"):
        """Uploads a text file through the Files API of the signed-in page."""
        result = self.api("""
          const up = api.uploadFile(%r, new File([%r], %r), %r, () => {});
          await up.promise; return "ok";""" % (folder + "/" + name, text, name, policy))
        self.assertEqual("ok", result)

    def make_folder(self, path):
        self.assertEqual("ok", self.api('await api.call("create", {path: %r, type: "folder"}); return "ok";'
                                        % path))
