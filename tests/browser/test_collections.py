"""Browser tests of the collections (starred, recent, labels, shared with me
and with others, backups), the preview (text, image, audio, video, PDF), delete with Undo and the access
request, against the real stack.

Run through tests/browser/run.sh BUILD_DIR. A second user, bob, shares a
folder with alice and keeps one to himself; his calls go over HTTP from
here. The tests run in order in one signed-in browser.
"""
import base64
import http.cookiejar
import json
import os
import sys
import unittest
import urllib.parse
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import stack  # noqa: E402
import steps  # noqa: E402
import test_web_client as base  # noqa: E402

BOB, BOB_PASSWORD = "bob", "bob-pass-1"


def http_session(url, account, password):
    """Signs account in over HTTP and answers call(method, api=..., **params)."""
    opener = urllib.request.build_opener(urllib.request.HTTPCookieProcessor(http.cookiejar.CookieJar()))
    token = {"value": ""}

    def call(method, api="ZEMO.ZemoraOrvel.Files", **params):
        body = {"api": api, "version": "1", "method": method}
        body.update({k: json.dumps(v) for k, v in params.items()})
        request = urllib.request.Request(url + "webapi/entry.cgi", urllib.parse.urlencode(body).encode(),
                                         headers={"X-ZEMO-Token": token["value"]})
        answer = json.loads(opener.open(request).read())
        if not answer.get("success"):
            raise RuntimeError("%s: %s" % (method, answer))
        return answer.get("data", {})

    token["value"] = call("login", api="ZEMO.API.Auth", account=account, passwd=password)["token"]
    return call


def share_from_bob(cls):
    """bob shares "Holiday plans" with alice and keeps "Private" to himself."""
    cls.stack.orvelctl("user", "add", BOB, "--password", BOB_PASSWORD)
    bob = http_session(cls.stack.url, BOB, BOB_PASSWORD)
    bob("create", path="/mydrive/Holiday plans", type="folder")
    bob("share", api="ZEMO.ZemoraOrvel.Sharing", path="/mydrive/Holiday plans", kind="user",
        name=stack.USER, role="viewer")
    cls.private_id = bob("create", path="/mydrive/Private", type="folder")["file_id"]


class CollectionsTest(steps.ClientSteps, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.start_stack(prepare=share_from_bob)

    def put_bytes(self, name, data):
        result = self.api("""
          const bytes = Uint8Array.from(atob(%r), (c) => c.charCodeAt(0));
          await api.uploadFile("/mydrive/" + %r, new File([bytes], %r), "overwrite", () => {}).promise;
          return "ok";""" % (base64.b64encode(data).decode(), name, name))
        self.assertEqual("ok", result)

    def close_preview(self):
        self.b.find("#preview-close").click()
        self.b.wait(lambda: not self.b.js("return !!document.getElementById('preview-dialog')"),
                    "the preview closed")

    def collection(self, route, name):
        b = self.b
        b.open("#/" + route)
        return b.visible('.collection-row[data-name="%s"]' % name)

    def test_1_starred_recent_and_labels(self):
        b = self.b
        self.login()
        self.put_file("/mydrive", "budget.txt", "rent 1200\nfood 420\n")
        self.put_file("/mydrive", "plain.txt", "nothing special\n")
        b.open("#/starred")   # coming back lists the folder again
        b.visible("#starred-view")
        self.open_folder("/mydrive")
        self.select_only("budget.txt")
        b.find("#star-button").click()
        b.text_in("#toasts", "Starred 1 item.")
        self.assertEqual("ok", self.api("""
          await api.call("label", {files: ["/mydrive/budget.txt"], labels: [{action: "add", name: "Money"}]});
          return "ok";"""))
        self.stack.orvelctl("label", "set-color", stack.USER, "Money", "#d04a3a")

        starred = self.collection("starred", "budget.txt")
        self.assertIn("★", starred.text)
        self.assertEqual([], b.find_all('#starred-rows .collection-row[data-name="plain.txt"]'))
        b.text_in("#starred-status", "1 item")
        self.collection("recent", "plain.txt")
        self.collection("recent", "budget.txt")

        b.open("#/labels")
        chip = b.visible('#label-chips .label-chip')
        self.assertEqual("Money", chip.text)
        dot = chip.find_element("css selector", ".label-dot")
        self.assertEqual("rgba(208, 74, 58, 1)", dot.value_of_css_property("background-color"))
        chip.click()
        b.visible('#labelled-rows .collection-row[data-name="budget.txt"]')
        b.text_in("#labelled-title", "Label: Money")
        self.assertEqual([], b.find_all('#labelled-rows .collection-row[data-name="plain.txt"]'))
        self.step_ok()

    def test_2_shared_with_me_and_with_others_and_backups(self):
        b = self.b
        mine = self.collection("shared-with-me", "Holiday plans")
        self.assertIn("/shared-with-me", mine.text)
        b.text_in("#shared-with-me-status", "1 item")
        # A shared folder opens in the file list.
        mine.find_element("css selector", "a.item-open").click()
        b.wait(lambda: b.find('#breadcrumbs [aria-current="page"]').text == "Holiday plans", "shared folder")
        b.wait(lambda: "empty" in b.find("#list-status").text, "its listing")

        self.make_folder("/mydrive/Team")
        self.assertEqual("ok", self.api("""
          await api.call("share", {path: "/mydrive/Team", kind: "user", name: %r, role: "editor"},
                         {api: "ZEMO.ZemoraOrvel.Sharing"});
          return "ok";""" % BOB))
        self.collection("shared-with-others", "Team")
        self.assertEqual([], b.find_all('#shared-with-others-rows .collection-row[data-name="budget.txt"]'))

        b.open("#/backups")
        b.text_in("#backups-status", "No backup tasks.")
        self.make_folder("/mydrive/Laptop")
        self.stack.orvelctl("backup", "add", stack.USER, "Laptop backup", "/mydrive/Laptop")
        b.open("#/starred")
        b.visible("#starred-view")
        b.open("#/backups")
        b.visible('.backup-row[data-name="Laptop"]').find_element("css selector", "a").click()
        b.wait(lambda: b.find('#breadcrumbs [aria-current="page"]').text == "Laptop", "backup folder")
        self.step_ok()

    def test_3_preview_of_text_image_and_audio(self):
        b = self.b
        self.put_bytes("photo.png", base.png(40, 30))
        self.put_bytes("tune.ogg", b"OggS" + bytes(60))
        self.put_bytes("clip.webm", b"\x1aE\xdf\xa3" + bytes(60))
        self.put_bytes("letter.pdf", b"%PDF-1.4\n%%EOF\n")
        self.open_folder("/mydrive")
        self.select_only("budget.txt")
        b.find("#preview-button").click()
        b.text_in("#preview-text", "rent 1200\nfood 420")
        self.close_preview()

        self.select_only("photo.png")
        b.find("#preview-button").click()
        image = b.visible("#preview-image")
        b.wait(lambda: b.js("return arguments[0].complete && arguments[0].naturalWidth", image) > 0,
               "the picture")
        self.close_preview()

        self.select_only("tune.ogg")
        b.find("#preview-button").click()
        src = b.visible("#preview-audio").get_attribute("src")
        self.assertIn("force_download=false", src)
        self.assertIn("tune.ogg", urllib.parse.unquote(src))
        self.close_preview()

        self.select_only("clip.webm")
        b.find("#preview-button").click()
        self.assertIn("force_download=false", b.visible("#preview-video").get_attribute("src"))
        self.close_preview()

        # A PDF opens in a new tab of the browser's own viewer; that tab asks
        # for a favicon, which the service does not have.
        self.step_ok()
        main = b.driver.current_window_handle
        self.select_only("letter.pdf")
        b.find("#preview-button").click()
        b.wait(lambda: len(b.driver.window_handles) == 2, "the PDF's tab")
        tab = [w for w in b.driver.window_handles if w != main][0]
        b.driver.switch_to.window(tab)
        b.wait(lambda: "letter.pdf" in urllib.parse.unquote(b.driver.current_url), "the PDF's address")
        self.assertIn("force_download=false", b.driver.current_url)
        b.driver.close()
        b.driver.switch_to.window(main)
        self.assertEqual([], [e for e in b.console_errors() if "/favicon.ico" not in e["message"]])

        # From a collection, a file opens in the preview too.
        starred = self.collection("starred", "budget.txt")
        starred.find_element("css selector", "a.item-open").click()
        b.text_in("#preview-text", "rent 1200")
        self.close_preview()
        self.step_ok()

    def test_4_delete_then_undo_puts_the_item_back(self):
        b = self.b
        self.open_folder("/mydrive")
        self.select_only("plain.txt")
        b.find("#delete-button").click()
        b.visible("#confirm-dialog")
        b.find("#confirm-dialog-ok").click()
        b.wait(lambda: not b.find_all('.vrow[data-name="plain.txt"]'), "plain.txt row gone")
        b.visible("#undo-delete").click()
        b.text_in("#toasts", 'Restored "plain.txt".')
        self.row("plain.txt")
        b.open("#/recycle")
        b.text_in("#recycle-status", "The recycle bin is empty.")
        self.step_ok()

    def test_5_a_refused_item_offers_an_access_request(self):
        b = self.b
        b.open("#/files/id:" + self.private_id)
        b.text_in("#list-status", "You do not have permission to do this.")
        b.visible("#request-access").click()
        b.wait(lambda: b.find("#request-access").text == "Access requested", "the request sent")
        self.assertFalse(b.find("#request-access").is_enabled())
        b.text_in("#toasts", "Access requested: the owner will see your request.")
        self.assertIn(stack.USER, self.stack.orvelctl("access-requests", BOB))
        # Each toast of the refusal is an error the page showed on purpose.
        self.b.console_errors()

    def detail_labels(self):
        return [c.text.replace("×", "").strip() for c in self.b.find_all("#detail-labels .label-chip")]

    def test_6_labels_added_and_removed_in_the_details(self):
        b = self.b
        self.open_folder("/mydrive")
        self.select_only("plain.txt")
        b.find("#details-button").click()
        b.visible("#details-dialog")
        facts = {e.get_attribute("data-fact"): e.text for e in b.find_all("#detail-facts dd")}
        self.assertEqual(("16 B", stack.USER, "/mydrive/plain.txt"),
                         (facts["size"], facts["owner"], facts["path"]))
        # The person's labels are offered, those already on the item left out.
        b.wait(lambda: b.find_all('#detail-label-choices option[value="Money"]'), "Money offered")
        b.find("#detail-label-name").send_keys("Money")
        b.find("#detail-label-add").click()
        b.text_in("#detail-status", 'Added label "Money".')
        self.assertEqual(["Money"], self.detail_labels())
        dot = b.find("#detail-labels .label-dot")
        self.assertEqual("rgba(208, 74, 58, 1)", dot.value_of_css_property("background-color"))
        b.wait(lambda: not b.find_all('#detail-label-choices option[value="Money"]'), "Money no longer offered")
        b.find("#detail-label-name").send_keys("Later")
        b.find("#detail-label-add").click()
        b.text_in("#detail-status", 'Added label "Later".')
        self.assertEqual(["Later", "Money"], self.detail_labels())
        remove = b.find('#detail-labels button[aria-label="Remove label Later"]')
        self.assertEqual("button", remove.aria_role)
        remove.click()
        b.text_in("#detail-status", 'Removed label "Later".')
        self.assertEqual(["Money"], self.detail_labels())
        b.find("#details-close").click()
        b.gone("#details-dialog")
        # "Later" is on no item now and still listed, from the Label API.
        b.open("#/labels")
        b.wait(lambda: [c.text for c in b.find_all("#label-chips .label-chip")] == ["Later", "Money"],
               "both labels listed")
        # Searching by the label finds both items that carry it.
        b.open("#/search/")
        b.text_in("#search-status", "Type a keyword or choose a filter.")
        b.find("#search-filters-toggle").click()
        b.visible("#filter-labels input")
        money = [e for e in b.find_all("#filter-labels label") if e.text == "Money"][0]
        money.find_element("css selector", "input").click()
        b.find("#filter-apply").click()
        b.text_in("#search-status", "2 results for these filters")
        self.assertEqual(["budget.txt", "plain.txt"],
                         sorted(e.text for e in b.find_all("#search-results .result-name")))
        self.step_ok()


if __name__ == "__main__":
    unittest.main()
