"""Headless Chromium driven by selenium for the web client's tests.

Every wait is on a condition of the page (an element, a text, a file in the
download folder), never a fixed sleep. check_console() fails on any browser
console error since the previous call.
"""
import shutil
import tempfile

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

WAIT_SECONDS = 60


def make_driver(download_dir, width=1280, height=900):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for arg in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                "--window-size=%d,%d" % (width, height), "--lang=en-US"):
        options.add_argument(arg)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    options.add_experimental_option("prefs", {
        "download.default_directory": download_dir,
        "download.prompt_for_download": False,
        "safebrowsing.enabled": False,
    })
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.execute_cdp_cmd("Page.setDownloadBehavior",
                           {"behavior": "allow", "downloadPath": download_dir})
    return driver


class Browser:
    def __init__(self, base_url, width=1280, height=900):
        self.base = base_url
        self.downloads = tempfile.mkdtemp(prefix="orvel-dl-")
        self.driver = make_driver(self.downloads, width, height)

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.downloads, ignore_errors=True)

    def open(self, hash_route=""):
        self.driver.get(self.base + hash_route)

    def wait(self, condition, what, seconds=WAIT_SECONDS):
        """Polls condition until it is true. The page re-renders while it is
        read (a toast replaced, a row recycled), so an element that goes
        stale between the find and the read counts as "not yet"."""
        return WebDriverWait(self.driver, seconds, poll_frequency=0.05,
                             ignored_exceptions=(StaleElementReferenceException,)).until(
            lambda d: condition(), message="waiting for " + what)

    def find(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css)

    def find_all(self, css):
        return self.driver.find_elements(By.CSS_SELECTOR, css)

    def visible(self, css):
        """Waits until an element matching css is displayed and answers it."""
        def check():
            for el in self.find_all(css):
                if el.is_displayed():
                    return el
            return None
        return self.wait(check, css)

    def gone(self, css):
        self.wait(lambda: not any(e.is_displayed() for e in self.find_all(css)), css + " gone")

    def text_in(self, css, text):
        return self.wait(lambda: any(text in e.text for e in self.find_all(css)),
                         "%r in %s" % (text, css))

    def console_errors(self):
        return [entry for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]

    def emulate_width(self, width, height=740):
        """A phone-sized viewport (headless windows do not go below 500 px)."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": True})

    def reset_width(self):
        self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def screenshot(self, path):
        self.driver.save_screenshot(path)

    def js(self, script, *args):
        return self.driver.execute_script(script, *args)
