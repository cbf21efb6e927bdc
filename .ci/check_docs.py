"""Looks at the reference site in a browser, as check_docs calls it: check_docs.py <folder of the site> <folder for pictures>

Fails if a page scrolls sideways on a phone, has no text, or reports an error, if the search doesn't find a class, and if
code in a page of the repository is not shown as it stands there.
"""

import re
import sys
import tempfile
from html.parser import HTMLParser
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

PAGES = ("index", "classTarnoMirelo_1_1MireloModel", "backend")
WIDTHS = {"desktop": 1280, "phone": 390}
SOUGHT = "ModelMetadata"
SECONDS = 20  # a machine under load is slow


class Text(HTMLParser):
    """The text of a page, without white space."""

    def __init__(self, page):
        super().__init__()
        self.text = ""
        self.feed(page.read_text())

    def handle_data(self, data):
        self.text += re.sub(r"[\s\u200b]+", "", data)


def lost_code(site):
    """Code of the pages that Doxygen made from, in blocks and in lines, which the site doesn't show."""
    for page in sorted((site / "../pages").resolve().glob("*.md")):
        shown = Text(site / f"{page.stem}.html").text
        text = page.read_text()
        blocks = re.findall(r"^ *(?:```|~~~~~~).*?\n(.*?)^ *(?:```|~~~~~~)$", text, re.DOTALL | re.MULTILINE)
        prose = re.sub(r"^ *(```|~~~~~~).*?^ *\1$", "", text, flags=re.DOTALL | re.MULTILINE)
        for code in [line for block in blocks for line in block.splitlines()] + re.findall(r"`+([^`]+)`+", prose):
            if "".join(code.split()) not in shown:
                yield f"{page.name}: this code is not shown as it stands there: {code}"


class Browser:
    def __init__(self, profile):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars",
                     f"--user-data-dir={profile}"):
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
        self.driver = webdriver.Chrome(service=service, options=options)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def show(self, address, width, dark=False):
        """Opens a page as a device of that width shows it."""
        command = self.driver.execute_cdp_cmd
        command("Emulation.setDeviceMetricsOverride",
                {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": width < 768})
        command("Emulation.setEmulatedMedia",
                {"features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})
        self.driver.get(address)
        self.wait("return document.readyState === 'complete'", f"{address} is not complete")

    def wait(self, script, otherwise):
        WebDriverWait(self.driver, SECONDS).until(lambda driver: driver.execute_script(script), otherwise)

    def faults(self, width):
        found = [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
        if not self.driver.execute_script("return document.querySelector('div.contents').innerText.trim()"):
            found.append("the main part is empty")
        wide = self.driver.execute_script("return Math.max(document.documentElement.scrollWidth,"
                                          "document.getElementById('doc-content').scrollWidth)")
        if wide > width:
            found.append(f"it is {wide} pixels wide, the window {width}")
        return found

    def search(self, name):
        """Types into the search box, and waits until the name is offered."""
        self.driver.find_element(By.ID, "MSearchField").send_keys(name)
        self.wait("const results = getComputedStyle(document.getElementById('MSearchResultsWindow'));"
                  "return results.display === 'block' && results.opacity === '1'", "the search shows no results")
        self.driver.switch_to.frame("MSearchResults")
        self.wait("return [...document.querySelectorAll('.SRResult')].some("
                  f"each => each.style.display === 'block' && each.innerText.trim().startsWith('{name}'))",
                  f"the search does not offer {name}")


def main():
    site, pictures = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
    pictures.mkdir(exist_ok=True)
    faults = list(lost_code(site))
    with tempfile.TemporaryDirectory() as profile, Browser(profile) as browser:
        looks = [(page, device, False) for page in PAGES for device in WIDTHS]
        looks += [(page, "desktop", True) for page in PAGES]
        for page, device, dark in looks:
            name = f"{page}-{device}" + ("-dark" if dark else "")
            browser.show(f"file://{site}/{page}.html", WIDTHS[device], dark)
            faults += [f"{name}: {fault}" for fault in browser.faults(WIDTHS[device])]
            browser.driver.save_screenshot(str(pictures / f"{name}.png"))
        browser.show(f"file://{site}/index.html", WIDTHS["desktop"])
        browser.search(SOUGHT)
        browser.driver.save_screenshot(str(pictures / "search.png"))
        faults += [f"search: {entry['message']}" for entry in browser.driver.get_log("browser")
                   if entry["level"] == "SEVERE"]
    if faults:
        sys.exit("\n".join([*faults, "docs: pages are NOT as they must be"]))
    print(f"docs: {len(PAGES)} pages are as they must be, pictures are in {pictures}")


main()
