"""Takes the README's picture of the web client: a signed-in user's folder
in list view with one row selected, 1280x800, in headless Chromium.

usage: /usr/bin/python3 tests/browser/screenshot.py BUILD_DIR [OUT.png]
(default OUT is docs/img/folder-view.png). The folder is filled through the
Files API of the signed-in page, so the picture shows what a user would see.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import browser  # noqa: E402
import stack  # noqa: E402

FOLDERS = ["Invoices", "Photos 2026", "Project Atlas", "Recipes"]
FILES = {
    "Budget 2027.csv": "month,rent,food,travel\n" + "jan,1200,420,80\n" * 300,
    "Garden plan.md": "# Garden\n\nTomatoes along the south fence.\n" * 40,
    "Meeting notes.txt": "Agenda: roof repair, shared car, summer trip.\n" * 80,
    "Packing list.txt": "passport\ncharger\nsunscreen\n" * 20,
    "Reading list.md": "- The long way home\n- Notes on gardening\n" * 30,
    "Tax return 2025.txt": "Income, deductions and refunds for 2025.\n" * 400,
    "Wedding speech.txt": "Thank you all for coming today.\n" * 150,
    "Wi-Fi setup.txt": "Router in the hall cupboard; guest network on 5 GHz.\n",
}
SELECTED = "Meeting notes.txt"


def fill(b, home):
    script = """
      const done = arguments[arguments.length - 1];
      const [folders, files] = [arguments[0], arguments[1]];
      import("/js/api.js").then(async (api) => {
        try {
          for (const name of folders)
            await api.call("create", {path: %r + "/" + name, type: "folder"});
          for (const [name, text] of Object.entries(files))
            await api.uploadFile(%r + "/" + name, new File([text], name), "overwrite", () => {}).promise;
          done("ok");
        } catch (e) { done("threw: " + e.message); }
      });""" % (home, home)
    result = b.driver.execute_async_script(script, FOLDERS, FILES)
    if result != "ok":
        raise RuntimeError("filling the folder: %s" % result)


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(stack.REPO, "build")
    out = sys.argv[2] if len(sys.argv) > 2 else os.path.join(stack.REPO, "docs/img/folder-view.png")
    st = stack.Stack(build)
    try:
        b = browser.Browser(st.url, 1280, 800)
        try:
            b.driver.set_window_size(1280, 800)
            b.open()
            b.visible("#login-account").send_keys(stack.USER)
            b.find("#login-password").send_keys(stack.PASSWORD)
            b.find("#login-submit").click()
            b.visible("#breadcrumbs")
            fill(b, "/mydrive")
            b.open("#/files/mydrive")
            b.driver.refresh()
            row = b.visible('.vrow[data-name="%s"]' % SELECTED)
            b.wait(lambda: len(b.find_all(".vrow")) >= len(FOLDERS) + len(FILES), "every row")
            row.click()
            b.wait(lambda: b.find('.vrow[data-name="%s"]' % SELECTED).get_attribute("aria-selected")
                   == "true", "the selected row")
            # The client is 1280x800 as a visitor sees it, whatever the window chrome takes.
            b.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": 1280, "height": 800, "deviceScaleFactor": 1, "mobile": False})
            b.screenshot(out)
            print(out)
        finally:
            b.close()
    finally:
        st.close()


if __name__ == "__main__":
    main()
