"""Browser tests of the web client's module views (recycle bin, sharing,
link visitor page, tasks) against the real stack.

Run through tests/browser/run.sh BUILD_DIR. One stack and one signed-in
browser serve the class; the tests run in order. Every step fails on a
browser console error, and a failing test leaves a screenshot in the build
folder (the same checks as test_web_client).
"""
import os
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import browser  # noqa: E402
import steps  # noqa: E402
from selenium.webdriver.support.ui import Select  # noqa: E402


class ClientViewsTest(steps.ClientSteps, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.start_stack()

    def delete_in_ui(self, folder, name):
        b = self.b
        self.open_folder(folder)
        self.select_only(name)
        b.find("#delete-button").click()
        b.visible("#confirm-dialog")
        b.find("#confirm-dialog-ok").click()
        b.wait(lambda: not b.find_all('.vrow[data-name="%s"]' % name), name + " row gone")

    def recycle_row(self, name):
        return self.b.visible('.recycle-row[data-name="%s"]' % name)

    # -- tests, in order ---------------------------------------------------

    def test_1_delete_then_restore_from_the_recycle_bin(self):
        b = self.b
        self.login()
        self.make_folder("/mydrive/Docs")
        self.put_file("/mydrive/Docs", "plan.txt", "first plan\n")
        self.delete_in_ui("/mydrive/Docs", "plan.txt")
        on_disk = os.path.join(self.stack.home(), "Docs", "plan.txt")
        self.assertFalse(os.path.exists(on_disk))
        self.step_ok()

        b.find('.side-nav a[href="#/recycle"]').click()
        row = self.recycle_row("plan.txt")
        self.assertEqual("/mydrive/Docs", row.find_element("css selector", ".recycle-origin").text)
        row.find_element("css selector", ".recycle-restore").click()
        b.text_in(".toast", 'Restored "plan.txt" to /mydrive/Docs/plan.txt.')
        b.text_in("#recycle-status", "The recycle bin is empty.")
        with open(on_disk) as f:
            self.assertEqual("first plan\n", f.read())
        self.open_folder("/mydrive/Docs")
        self.row("plan.txt")
        self.step_ok()

    def test_2_restore_onto_a_taken_name_asks_then_renames(self):
        b = self.b
        self.delete_in_ui("/mydrive/Docs", "plan.txt")
        self.put_file("/mydrive/Docs", "plan.txt", "second plan\n")
        b.open("#/recycle")
        self.recycle_row("plan.txt").find_element("css selector", ".recycle-restore").click()
        b.visible("#confirm-dialog")
        self.assertIn('"plan.txt" already exists', b.find("#confirm-dialog p").text)
        b.find("#confirm-dialog-ok").click()
        b.text_in(".toast", 'Restored "plan.txt" to /mydrive/Docs/plan (1).txt.')
        docs = os.path.join(self.stack.home(), "Docs")
        with open(os.path.join(docs, "plan (1).txt")) as f:
            self.assertEqual("first plan\n", f.read())
        with open(os.path.join(docs, "plan.txt")) as f:
            self.assertEqual("second plan\n", f.read())
        self.step_ok()

    def test_3_delete_for_good_and_empty(self):
        b = self.b
        self.delete_in_ui("/mydrive/Docs", "plan (1).txt")
        self.delete_in_ui("/mydrive/Docs", "plan.txt")
        b.open("#/recycle")
        self.recycle_row("plan (1).txt").find_element("css selector", ".recycle-delete").click()
        b.visible("#confirm-dialog")
        b.find("#confirm-dialog-ok").click()
        b.text_in(".toast", 'Deleted "plan (1).txt" for good.')
        b.wait(lambda: len(b.find_all(".recycle-row")) == 1, "one row left")
        b.find("#recycle-empty").click()
        b.visible("#confirm-dialog")
        b.find("#confirm-dialog-ok").click()
        b.text_in("#recycle-status", "The recycle bin is empty.")
        self.assertEqual([], b.find_all(".recycle-row"))
        self.assertEqual("ok", self.api(
            'const d = await api.call("list", {}, {api: "ZEMO.ZemoraOrvel.Recycle"});'
            ' return d.total === 0 ? "ok" : JSON.stringify(d);'))
        self.step_ok()

    def create_link_in_ui(self, folder, name, password=""):
        """Creates a viewer link for name in the share dialog; answers its URL."""
        b = self.b
        b.open("#/files" + folder)
        b.driver.refresh()   # files put through the API are listed
        self.open_folder(folder)
        self.select_only(name)
        b.find("#share-button").click()
        b.visible("#share-dialog")
        before = len(b.find_all(".share-link"))
        if password:
            b.find("#link-password").send_keys(password)
        b.find("#link-create").click()
        b.wait(lambda: len(b.find_all(".share-link")) == before + 1, "new link listed")
        url = b.find_all(".share-link .link-url")[-1].get_attribute("value")
        self.assertRegex(url, r"^%ss\.html#[0-9a-f]{16,}$" % self.stack.url)
        b.find("#share-close").click()
        self.step_ok()
        return url

    def visitor(self):
        """A fresh browser: no cookies, no session."""
        v = browser.Browser(self.stack.url)
        self.addCleanup(v.close)
        return v

    def test_4_visitor_downloads_a_file_of_a_shared_folder(self):
        self.make_folder("/mydrive/Open")
        self.put_file("/mydrive/Open", "hello.txt", "hello visitor\n")
        url = self.create_link_in_ui("/mydrive", "Open")

        v = self.visitor()
        v.driver.get(url)
        item = v.visible('.visitor-item[data-name="hello.txt"]')
        item.find_element("css selector", ".visitor-download").click()
        saved = os.path.join(v.downloads, "hello.txt")
        v.wait(lambda: os.path.exists(saved) and not any(
            n.endswith(".crdownload") for n in os.listdir(v.downloads)), "hello.txt downloaded")
        with open(saved, "rb") as f:
            self.assertEqual(b"hello visitor\n", f.read())
        self.assertEqual([], v.console_errors())

    def test_5_password_link_asks_for_its_password(self):
        self.put_file("/mydrive/Docs", "secret.txt", "for friends\n")
        url = self.create_link_in_ui("/mydrive/Docs", "secret.txt", password="open sesame")
        v = self.visitor()
        v.driver.get(url)
        v.visible("#visitor-password").send_keys("wrong one")
        v.find("#visitor-unlock").click()
        v.text_in("#visitor-note", "wrong password for the sharing link")
        v.find("#visitor-password").clear()
        v.find("#visitor-password").send_keys("open sesame")
        v.find("#visitor-unlock").click()
        v.text_in("#visitor-name", "secret.txt")
        v.find("#visitor-download").click()
        saved = os.path.join(v.downloads, "secret.txt")
        v.wait(lambda: os.path.exists(saved) and not any(
            n.endswith(".crdownload") for n in os.listdir(v.downloads)), "secret.txt downloaded")
        with open(saved, "rb") as f:
            self.assertEqual(b"for friends\n", f.read())
        self.assertEqual([], v.console_errors())

    def test_6_task_panel_lists_the_finished_deletes(self):
        b = self.b
        b.open("#/tasks")
        b.visible(".task-row")
        kinds = lambda: [(r.get_attribute("data-kind"), r.get_attribute("data-state"))
                         for r in b.find_all(".task-row")]
        # The deletes of the earlier steps (to the bin, for good, empty) ended.
        b.wait(lambda: ("delete", "finished") in kinds(), "a finished delete listed")
        self.assertEqual([], [k for k in kinds() if k[1] in ("queued", "running")])
        self.assertEqual([], b.find_all(".task-cancel"))
        self.step_ok()

    def test_7_restore_an_older_version(self):
        b = self.b
        self.put_file("/mydrive/Docs", "draft.txt", "version one\n")
        self.put_file("/mydrive/Docs", "draft.txt", "version two\n", "overwrite_server")
        b.open("#/files/mydrive/Docs")
        b.driver.refresh()
        self.open_folder("/mydrive/Docs")
        self.select_only("draft.txt")
        b.find("#versions-button").click()
        b.visible("#revision-dialog .revision").find_element("css selector", ".revision-restore").click()
        b.text_in(".toast", 'Restored an older version of "draft.txt".')
        with open(os.path.join(self.stack.home(), "Docs", "draft.txt")) as f:
            self.assertEqual("version one\n", f.read())
        b.find("#revision-close").click()
        self.step_ok()

    def link_row(self, folder, name, token):
        b = self.b
        self.open_folder(folder)
        self.select_only(name)
        b.find("#share-button").click()
        return b.visible('.share-link[data-token="%s"]' % token)

    def links_of(self, path):
        return self.api("""
          const d = await api.call("list", {path: %r}, {api: "ZEMO.ZemoraOrvel.Sharing"});
          return d.links.map((l) => [l.role, l.expires, l.has_password]);""" % path)

    def test_a_change_a_links_role_expiry_and_password(self):
        b = self.b
        self.put_file("/mydrive/Docs", "plan.txt", "the plan\n")
        url = self.create_link_in_ui("/mydrive/Docs", "plan.txt")
        token = url.split("#", 1)[1]
        row = self.link_row("/mydrive/Docs", "plan.txt", token)
        change = row.find_element("css selector", ".link-change")
        change.click()
        self.assertEqual("true", change.get_attribute("aria-expanded"))
        b.visible("#link-edit-form")
        b.find("#link-edit-role").send_keys("Can edit")
        b.js("arguments[0].value = arguments[1]", b.find("#link-edit-expires"), "2031-05-20")
        b.find("#link-edit-password").send_keys("pw-2")
        b.find("#link-edit-save").click()
        b.text_in("#share-status", "Link changed.")
        b.text_in('.share-link[data-token="%s"]' % token, "can edit, until May 20, 2031")
        until = int(time.mktime((2031, 5, 20, 23, 59, 59, 0, 0, -1)))
        self.assertEqual([["editor", until, True]], self.links_of("/mydrive/Docs/plan.txt"))

        # No expiry and no password any more: a visitor gets in at once.
        b.find('.share-link[data-token="%s"] .link-change' % token).click()
        self.assertEqual("2031-05-20", b.visible("#link-edit-expires").get_attribute("value"))
        b.find("#link-edit-expires").clear()
        b.find("#link-edit-no-password").click()
        b.find("#link-edit-save").click()
        b.wait(lambda: self.links_of("/mydrive/Docs/plan.txt") == [["editor", 0, False]], "link changed again")
        b.wait(lambda: "until" not in b.find('.share-link[data-token="%s"]' % token).text, "expiry gone")
        self.assertNotIn("password", b.find('.share-link[data-token="%s"]' % token).text)
        b.find("#share-close").click()
        v = self.visitor()
        v.driver.get(url)
        v.text_in("#visitor-name", "plan.txt")
        self.assertEqual([], v.console_errors())
        self.step_ok()

    def result_names(self):
        return sorted(e.text for e in self.b.find_all("#search-results .result-name"))

    def test_8_search_filters_by_type_and_size_at_360_px(self):
        b = self.b
        self.put_file("/mydrive", "quokka-notes.txt", "a quokka near the path\n")
        self.put_file("/mydrive", "quokka-diary.txt", "quokka seen again\n" * 1500)   # 27 KB
        self.put_file("/mydrive", "quokka-photo.png", "not really a picture")
        b.emulate_width(360)
        try:
            b.open("#/search/quokka")
            b.text_in("#search-status", '3 results for "quokka"')
            b.find("#search-filters-toggle").click()
            form = b.visible("#search-filters-form")
            Select(b.find("#filter-type")).select_by_value("text")
            b.find("#filter-max-size").send_keys("10")
            Select(b.find("#filter-size-unit")).select_by_value("KB")
            b.find("#filter-apply").click()
            b.text_in("#search-status", '1 result for "quokka"')
            self.assertEqual(["quokka-notes.txt"], self.result_names())
            self.assertTrue(b.driver.current_url.endswith("#/search/quokka?type=text&max=10&unit=KB"))
            # Usable on a phone: nothing wider than the screen, every control
            # named and in its role.
            self.assertLessEqual(b.js("return document.documentElement.scrollWidth"), 360)
            named = {el.get_attribute("id"): (el.aria_role, el.accessible_name) for el in
                     form.find_elements("css selector", "select, input, button") if el.get_attribute("id")}
            self.assertEqual(("combobox", "Type"), named["filter-type"])
            self.assertEqual(("spinbutton", "At most"), named["filter-max-size"])
            self.assertEqual(("button", "Apply filters"), named["filter-apply"])
            self.assertIn("From", named["filter-from"][1])
            # A reload keeps the filters; owner "others" leaves nothing.
            b.driver.refresh()
            b.text_in("#search-status", '1 result for "quokka"')
            self.assertEqual("10", b.visible("#filter-max-size").get_attribute("value"))
            Select(b.find("#filter-owner")).select_by_value("others")
            b.find("#filter-apply").click()
            b.text_in("#search-status", 'Nothing found for "quokka".')
            b.find("#filter-clear").click()
            b.text_in("#search-status", '3 results for "quokka"')
            # A range that can match nothing is refused before any request.
            b.find("#filter-min-size").send_keys("5")
            b.find("#filter-max-size").send_keys("1")
            b.find("#filter-apply").click()
            b.text_in("#filter-error", "The smallest size is over the largest size.")
            self.assertTrue(b.driver.current_url.endswith("#/search/quokka"))
            self.step_ok()
        finally:
            b.reset_width()

    def test_9_filters_become_search_criteria(self):
        got = self.b.driver.execute_async_script("""
          const done = arguments[arguments.length - 1];
          import("/js/search-filters.js").then((f) => {
            const c = f.criteria(new URLSearchParams(
              "type=pdf&from=2024-03-01&to=2024-03-02&min=1.5&max=2&unit=MB&owner=custom&user=bob&label=L1&label=L2"));
            c.span = c.end_date - c.start_date;
            delete c.start_date; delete c.end_date;
            done([c, f.criteria(new URLSearchParams("owner=me&min=&max=abc")),
                  f.hasFilters(new URLSearchParams("unit=KB"))]);
          }, (e) => done("import failed: " + e.message));""")
        self.assertEqual([{"file_type": "pdf", "time": "custom", "span": 2 * 86400 - 1,
                           "min_size": 1572864, "max_size": 2097152, "custom_owner": {"name": "bob"},
                           "labels": ["L1", "L2"]},
                          {"owner": "me"}, False], got)
        self.step_ok()


if __name__ == "__main__":
    unittest.main()
