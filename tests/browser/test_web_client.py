"""Browser tests of the web client against the real stack.

Run through tests/browser/run.sh BUILD_DIR (or with ORVEL_BUILD_DIR set).
One stack and one browser serve the whole class; the tests run in order and
build on each other's files, as a person's session would. Every step fails
on a browser console error, and a failing test leaves a screenshot in the
build folder.
"""
import base64
import os
import struct
import sys
import unittest
import zipfile
import zlib

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import stack  # noqa: E402
import steps  # noqa: E402

def png(width, height):
    """A small RGB PNG, so the grid has a real thumbnail to show."""
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))
    rows = b"".join(
        b"\0" + b"".join(bytes((x * 9 % 256, y * 9 % 256, 90)) for x in range(width))
        for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def write_upload_sources(cls):
    """The files the tests upload through the file input."""
    cls.files = os.path.join(cls.stack.root, "upload-src")
    os.makedirs(cls.files)
    contents = {"notes.txt": "meeting notes about the quarterly budget\n",
                "report.txt": "the annual zephyrine report for the board\n",
                "todo.md": "buy milk\n" * 2000}
    for name, text in contents.items():
        with open(os.path.join(cls.files, name), "w") as f:
            f.write(text)


class WebClientTest(steps.ClientSteps, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.start_stack(prepare=write_upload_sources)

    def clear_uploads(self):
        if self.b.find("#upload-panel").is_displayed():
            self.b.find("#upload-clear").click()

    # -- tests, in order ---------------------------------------------------

    def run_module(self, script):
        """Runs script with the client's modules imported (api, errors,
        selection, search) in the page and answers what it returns."""
        # The page's policy forbids eval, so the code goes into the script
        # WebDriver runs, which the policy does not cover.
        return self.b.driver.execute_async_script("""
          const done = arguments[arguments.length - 1];
          Promise.all(["api", "errors", "selection", "search"].map((m) => import("/js/" + m + ".js")))
            .then(([api, errors, selection, search]) => {
              try { done((() => { %s })()); } catch (e) { done("threw: " + e.message); }
            }, (e) => done("import failed: " + e.message));
        """ % script)

    def test_0_client_modules(self):
        b = self.b
        b.open()
        b.visible("#login-account")
        self.step_ok()
        # Answers become sentences, never raw JSON; a bare step name adds nothing.
        self.assertEqual(
            ["An item with that name already exists here, or a folder cannot go into itself.",
             "The item was not found (it may have been moved or deleted). (no such path: /mydrive/x)",
             "You do not have permission to do this.",
             "The server answered with error 4242. (odd)",
             "The server could not be reached or gave no valid answer. (HTTP status 502)"],
            self.run_module("""
              const out = [];
              for (const text of [
                '{"success":false,"error":{"code":1031,"errors":{"message":"upload file failed"}}}',
                '{"success":false,"error":{"code":1002,"errors":{"message":"no such path: /mydrive/x"}}}',
                '{"success":false,"error":{"code":1006}}',
                '{"success":false,"error":{"code":4242,"errors":{"message":"odd"}}}',
                '<html>bad gateway</html>']) {
                try { api.unwrap(text, 502); out.push("no error"); } catch (e) { out.push(e.message); }
              }
              return out;"""))
        self.assertEqual([True, True, True, True, False], self.run_module("""
            return [105, 106, 119, 1007, 1002].map((c) => new api.ApiError(c, "").sessionLost);"""))
        self.assertEqual({"a": 1}, self.run_module("""return api.unwrap('{"success":true,"data":{"a":1}}');"""))
        # Selection: click, ctrl-click, shift ranges from the anchor, select all.
        # The anchor moves with a ctrl-click, as in desktop file managers.
        self.assertEqual([[3], [3, 5], [5, 6], [1, 2, 3, 4, 5], 5, [0, 1, 3, 4]], self.run_module("""
            const s = new selection.Selection();
            const out = [];
            s.only(3, "/c"); out.push(s.indexes(10));
            s.toggle(5, "/e"); out.push(s.indexes(10));
            s.range(6, (i) => "/" + i); out.push(s.indexes(10));
            s.range(1, (i) => "/" + i); out.push(s.indexes(10));
            s.selectAll(); s.toggle(2, "/b"); out.push(s.count(6));
            out.push(s.indexes(5));
            return out;"""))
        # Snippets: only <b>...</b> becomes <mark>; anything else stays text.
        self.assertEqual([["#text", "a "], ["MARK", "<i>x</i>"], ["#text", " & <script>"]],
                         self.run_module("""
            return search.snippetNodes("a <b><i>x</i></b> & <script>").map(
              (n) => [n.nodeName, n.textContent]);"""))
        self.step_ok()

    def test_1_login_page_then_files(self):
        b = self.b
        b.open()
        b.visible("#login-account")
        self.assertIn("#/login", b.driver.current_url)
        b.find("#login-account").send_keys(stack.USER)
        b.find("#login-password").send_keys("wrong password")
        b.find("#login-submit").click()
        b.text_in("#login-error", "Wrong account name or password.")
        self.step_ok()
        b.find("#login-password").clear()
        b.find("#login-password").send_keys(stack.PASSWORD)
        b.find("#login-submit").click()
        b.visible("#breadcrumbs")
        self.assertTrue(b.driver.current_url.endswith("#/files/mydrive"))
        b.text_in("#list-status", "This folder is empty.")
        self.step_ok()

    def test_2_new_folder(self):
        b = self.b
        self.open_folder("/mydrive")
        b.find("#new-folder").click()
        name = b.visible("#name-input")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("Projects")
        b.find("#name-dialog-ok").click()
        self.row("Projects")
        self.assertTrue(os.path.isdir(os.path.join(self.stack.home(), "Projects")))
        b.find("#new-folder").click()
        name = b.visible("#name-input")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("Archive")
        b.find("#name-dialog-ok").click()
        self.row("Archive")
        self.step_ok()

    def test_3_upload_three_files_with_progress(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        paths = [os.path.join(self.files, n) for n in ("notes.txt", "report.txt", "todo.md")]
        b.find("#upload-input").send_keys("\n".join(paths))
        b.visible("#upload-panel")
        b.text_in("#upload-summary", "3 of 3 uploaded")
        for item in b.find_all(".upload-item"):
            bar = item.find_element("css selector", "progress")
            self.assertEqual(bar.get_attribute("max"), bar.get_attribute("value"))
            self.assertEqual("done", item.get_attribute("data-state"))
        total = b.find("#upload-total")
        self.assertEqual(total.get_attribute("max"), total.get_attribute("value"))
        for name in ("notes.txt", "report.txt", "todo.md"):
            self.row(name)
        b.text_in("#list-status", "3 items")
        with open(os.path.join(self.stack.home(), "Projects", "todo.md")) as f:
            self.assertEqual("buy milk\n" * 2000, f.read())
        self.step_ok()

    def test_4_upload_taken_name_keep_both(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        self.clear_uploads()
        b.find("#upload-input").send_keys(os.path.join(self.files, "notes.txt"))
        b.visible("#conflict-dialog")
        b.find("#conflict-dialog-keep").click()
        b.text_in("#upload-summary", "1 of 1 uploaded")
        self.row("notes (1).txt")
        self.step_ok()

    def test_5_rename_move_star_copy(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        self.select_only("notes (1).txt")
        b.find("#file-list").send_keys(Keys.F2)
        name = b.visible("#name-input")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("minutes.txt")
        b.find("#name-dialog-ok").click()
        self.row("minutes.txt")
        self.step_ok()

        self.select_only("minutes.txt")
        b.find("#move-button").click()
        b.visible("#picker-dialog nav button").click()   # "My files"
        b.visible('#picker-list [data-path="/mydrive/Archive"]').click()
        b.text_in("#picker-dialog nav", "Archive")
        b.find("#picker-dialog-ok").click()
        b.wait(lambda: not b.find_all('.vrow[data-name="minutes.txt"]'), "moved row gone")
        self.assertTrue(os.path.isfile(os.path.join(self.stack.home(), "Archive", "minutes.txt")))
        self.step_ok()

        self.select_only("report.txt")
        b.find("#star-button").click()
        b.wait(lambda: "starred" in self.row("report.txt").get_attribute("aria-label"), "star shown")
        self.assertEqual("Unstar", b.find("#star-button").text)
        self.step_ok()

        b.find("#copy-button").click()
        b.visible("#picker-dialog nav button").click()
        b.visible('#picker-list [data-path="/mydrive/Archive"]').click()
        b.text_in("#picker-dialog nav", "Archive")
        b.find("#picker-dialog-ok").click()
        b.text_in(".toast", "Copied 1 item.")
        self.row("report.txt")
        self.assertTrue(os.path.isfile(os.path.join(self.stack.home(), "Archive", "report.txt")))
        self.step_ok()

    def test_6_search_snippet_highlighted(self):
        b = self.b
        box = b.visible("#search-input")
        box.clear()
        box.send_keys("zephyrine", Keys.ENTER)
        b.text_in("#search-status", '2 results for "zephyrine"')   # and its copy
        result = b.visible('.search-result[data-path="/mydrive/Projects/report.txt"]')
        marks = result.find_elements("css selector", ".snippet mark")
        self.assertEqual(["zephyrine"], [m.text for m in marks])
        self.assertEqual("the annual zephyrine report for the board",
                         result.find_element("css selector", ".snippet").text.strip())
        self.step_ok()

    def test_7_download_folder_as_zip(self):
        b = self.b
        self.open_folder("/mydrive")
        self.select_only("Projects")
        b.find("#download-button").click()
        zip_path = os.path.join(b.downloads, "Projects.zip")
        b.wait(lambda: os.path.exists(zip_path) and not any(
            n.endswith(".crdownload") for n in os.listdir(b.downloads)), "Projects.zip downloaded")
        with zipfile.ZipFile(zip_path) as z:
            self.assertEqual(["Projects/", "Projects/notes.txt", "Projects/report.txt", "Projects/todo.md"],
                             sorted(z.namelist()))
            self.assertEqual(b"buy milk\n" * 2000, z.read("Projects/todo.md"))
        self.step_ok()

    def test_8_keyboard_selection_and_delete(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        self.select_only("notes.txt")
        listbox = b.find("#file-list")
        listbox.send_keys(Keys.SHIFT, Keys.ARROW_DOWN)
        selected = lambda: [r.get_attribute("data-name") for r in b.find_all('.vrow[aria-selected="true"]')]
        b.wait(lambda: selected() == ["notes.txt", "report.txt"], "shift+down extends")
        self.assertEqual("row-1", listbox.get_attribute("aria-activedescendant"))
        ActionChains(b.driver).key_down(Keys.CONTROL).click(self.row("todo.md")).key_up(Keys.CONTROL).perform()
        b.wait(lambda: selected() == ["notes.txt", "report.txt", "todo.md"], "ctrl+click adds")
        ActionChains(b.driver).key_down(Keys.CONTROL).click(self.row("report.txt")).key_up(Keys.CONTROL).perform()
        b.wait(lambda: selected() == ["notes.txt", "todo.md"], "ctrl+click removes")
        listbox.send_keys(Keys.CONTROL, "a")
        b.wait(lambda: len(selected()) == 3, "ctrl+a selects all")
        listbox.send_keys(Keys.ARROW_DOWN)
        b.wait(lambda: selected() == ["todo.md"], "down moves the selection")
        listbox.send_keys(Keys.DELETE)
        b.visible("#confirm-dialog")
        self.assertIn('"todo.md"', b.find("#confirm-dialog p").text)
        b.find("#confirm-dialog-ok").click()
        b.wait(lambda: not b.find_all('.vrow[data-name="todo.md"]'), "deleted row gone")
        self.assertFalse(os.path.exists(os.path.join(self.stack.home(), "Projects", "todo.md")))
        b.text_in(".toast", 'Moved "todo.md" to the recycle bin.')
        self.step_ok()

        self.select_only("notes.txt")
        listbox.send_keys(Keys.ENTER)   # a file: downloaded directly
        saved = os.path.join(b.downloads, "notes.txt")
        b.wait(lambda: os.path.exists(saved) and not any(
            n.endswith(".crdownload") for n in os.listdir(b.downloads)), "notes.txt downloaded")
        with open(saved) as f:
            self.assertEqual("meeting notes about the quarterly budget\n", f.read())
        self.step_ok()

    def test_9_error_sentence_for_a_taken_name(self):
        b = self.b
        self.open_folder("/mydrive")
        b.find("#new-folder").click()
        name = b.visible("#name-input")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("Projects")
        b.find("#name-dialog-ok").click()
        b.text_in(".toast.error", "An item with that name already exists here")
        self.assertNotIn("{", b.find(".toast.error").text)
        self.b.console_errors()

    def test_a_failed_upload_can_be_retried(self):
        b = self.b
        self.open_folder("/mydrive/Archive")
        # A folder that does not exist: the upload into it fails.
        self.clear_uploads()
        b.js("location.hash = '#/files/mydrive/Gone'")
        b.text_in("#list-status", "not found")
        b.find("#upload-input").send_keys(os.path.join(self.files, "report.txt"))
        b.text_in(".upload-item .upload-status", "Failed: The item was not found")
        retry = b.visible(".upload-item button:not([hidden])")
        self.assertEqual("Retry", retry.text)
        # Once the folder exists, the same upload succeeds.
        b.js("location.hash = '#/files/mydrive'")
        self.row("Projects")
        b.find("#new-folder").click()
        name = b.visible("#name-input")
        name.send_keys(Keys.CONTROL, "a")
        name.send_keys("Gone")
        b.find("#name-dialog-ok").click()
        self.row("Gone")
        retry.click()
        b.text_in("#upload-summary", "1 of 1 uploaded")
        self.assertTrue(os.path.isfile(os.path.join(self.stack.home(), "Gone", "report.txt")))
        self.step_ok()

    def test_b_session_lost_returns_to_the_same_place(self):
        b = self.b
        self.open_folder("/mydrive/Archive")
        b.driver.delete_cookie("id")
        b.js("location.hash = '#/files/mydrive/Projects'")
        b.visible("#login-account")
        self.assertIn("next=%23%2Ffiles%2Fmydrive%2FProjects", b.driver.current_url)
        b.text_in(".toast.error", "Your session has ended. Please sign in again.")
        self.assertEqual(1, sum("session has ended" in t.text for t in b.find_all(".toast.error")))
        b.find("#login-account").send_keys(stack.USER)
        b.find("#login-password").send_keys(stack.PASSWORD)
        b.find("#login-submit").click()
        b.wait(lambda: b.driver.current_url.endswith("#/files/mydrive/Projects"), "back in Projects")
        self.row("report.txt")
        self.b.console_errors()

    def test_c_narrow_screen(self):
        b = self.b
        b.emulate_width(360)
        try:
            self.open_folder("/mydrive/Projects")
            self.row("report.txt")
            width = b.js("return document.documentElement.scrollWidth")
            self.assertLessEqual(width, 360)
            for css in ("#upload-button", "#new-folder", "#search-input", "#sort-select"):
                self.assertTrue(b.find(css).is_displayed(), css)
            menu = b.find(".menu-button")
            menu.click()
            b.visible("#nav-files")
            self.assertEqual("true", menu.get_attribute("aria-expanded"))
            self.step_ok()
        finally:
            b.reset_width()

    def test_d_every_control_has_a_name(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        unnamed = b.js("""
          const out = [];
          for (const el of document.querySelectorAll('button, input, select, [role=option], [role=listbox]')) {
            const name = el.getAttribute('aria-label') || el.textContent.trim() ||
              (el.id && document.querySelector('label[for="' + el.id + '"]'));
            if (!name) out.push(el.outerHTML.slice(0, 80));
          }
          return out;""")
        self.assertEqual([], unnamed)
        self.assertEqual("true", b.find("#file-list").get_attribute("aria-multiselectable"))
        self.step_ok()

    def test_e_sort_and_type_filter(self):
        b = self.b
        self.open_folder("/mydrive")
        names = lambda: [r.get_attribute("data-name") for r in b.find_all(".vrow[data-name]")]
        b.wait(lambda: names() == ["Archive", "Gone", "Projects"], "folders by name")
        Select(b.find("#sort-select")).select_by_value("name:desc")
        b.wait(lambda: names() == ["Projects", "Gone", "Archive"], "folders by name, descending")
        self.open_folder("/mydrive/Projects")
        Select(b.find("#sort-select")).select_by_value("size:desc")
        b.wait(lambda: names() == ["report.txt", "notes.txt"], "largest first")
        Select(b.find("#type-filter")).select_by_value("dir")
        b.text_in("#list-status", "This folder is empty.")
        Select(b.find("#type-filter")).select_by_value("text")
        b.wait(lambda: sorted(names()) == ["notes.txt", "report.txt"], "text files")
        Select(b.find("#type-filter")).select_by_value("all")
        Select(b.find("#sort-select")).select_by_value("name:asc")
        b.wait(lambda: names() == ["notes.txt", "report.txt"], "back to names")
        self.step_ok()

    def test_f_drop_and_grid_thumbnail(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        self.clear_uploads()
        # A drop of a file made in the page (a synthetic drop has no entries:
        # the plain file list is used).
        b.js("""
          const data = new DataTransfer();
          const bytes = Uint8Array.from(atob(arguments[0]), (c) => c.charCodeAt(0));
          data.items.add(new File([bytes], "picture.png", {type: "image/png"}));
          const zone = document.querySelector(".files-view");
          zone.dispatchEvent(new DragEvent("dragover", {dataTransfer: data, bubbles: true, cancelable: true}));
          zone.dispatchEvent(new DragEvent("drop", {dataTransfer: data, bubbles: true, cancelable: true}));
        """, base64.b64encode(png(64, 48)).decode())
        b.text_in("#upload-summary", "1 of 1 uploaded")
        self.row("picture.png")
        toggle = b.find("#view-toggle")
        toggle.click()
        b.wait(lambda: toggle.get_attribute("aria-pressed") == "true", "grid on")
        img = b.visible('.vrow[data-name="picture.png"] img.thumb')
        b.wait(lambda: b.js("return arguments[0].complete && arguments[0].naturalWidth", img) == 64,
               "thumbnail loaded")
        self.assertIn("_token=", img.get_attribute("src"))
        self.assertNotIn("_sid", img.get_attribute("src"))
        toggle.click()
        b.wait(lambda: toggle.get_attribute("aria-pressed") == "false", "list again")
        self.step_ok()

    def test_g_sign_out(self):
        b = self.b
        self.open_folder("/mydrive/Projects")
        b.find("#logout-button").click()
        b.visible("#login-account")
        self.assertTrue(b.driver.current_url.endswith("#/login"))
        self.assertIsNone(b.driver.get_cookie("id"))
        self.assertEqual("", b.js("return sessionStorage.getItem('zemo.token') || ''"))
        b.open("#/files/mydrive/Archive")
        b.visible("#login-account")
        self.assertIn("next=%23%2Ffiles%2Fmydrive%2FArchive", b.driver.current_url)
        b.open("")
        b.visible("#login-account")
        self.step_ok()


if __name__ == "__main__":
    unittest.main(verbosity=2)
